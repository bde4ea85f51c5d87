// The PPS library: line parser, decoder, encoder, and the three together.
#include <decoder_walk.h>
#include <encoder_walk.h>
#include <gtest/gtest.h>
#include <pps.h>

#include <chrono>
#include <climits>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <limits>
#include <string>
#include <vector>

#include "support/fixture.h"

namespace {

using fuzz::DecodedText;
using fuzz::Quoted;
using fuzz::Shown;

const bool kPps = false, kJson = true;

// The parts of `text` between the separators.
std::vector<std::string> Split(const std::string& text, char separator = '|') {
  std::vector<std::string> parts(1);
  for (const char c : text) {
    if (c == separator) {
      parts.emplace_back();
    } else {
      parts.back() += c;
    }
  }
  return parts;
}

std::string Repeated(std::size_t count, const std::string& part) {
  std::string text;
  text.reserve(count * part.size());
  while (count-- > 0) text += part;
  return text;
}

// The results of calls made one after the other, a blank between them.
std::string InTurn(const std::vector<std::string>& results) {
  std::string all;
  for (const std::string& result : results) all += (all.empty() ? "" : " ") + result;
  return all;
}

std::string ErrorName(pps_decoder_error_t error) {
  return Split("OK NO_MEM BAD_TYPE NOT_FOUND PARSE_ERROR POP_AT_ROOT", ' ').at(error);
}

// A decoder whose calls tell the error or the value as text.
class Decoder : public fuzz::Decoding {
 public:
  Decoder(bool json, const std::string& text) : Decoding(text, json) {}
  operator pps_decoder_t*() { return decoder(); }

  std::string Int(const char* name) { return Get(pps_decoder_get_int, name, -77); }
  std::string Int64(const char* name) {
    return Get(pps_decoder_get_int64, name, std::int64_t{-77});
  }
  std::string Double(const char* name) { return Get(pps_decoder_get_double, name, -77.25); }
  std::string Bool(const char* name) { return Get(pps_decoder_get_bool, name, true); }
  std::string String(const char* name) {
    static const char kUntouched[] = "untouched";
    return Get(pps_decoder_get_string, name, kUntouched);
  }
  // Int for each of the words.
  std::string Ints(const std::string& names) {
    std::vector<std::string> all;
    for (const std::string& name : Split(names, ' ')) all.push_back(Int(name.c_str()));
    return InTurn(all);
  }
  std::string Type(const char* name) {
    return Split("NULL BOOL NUMBER STRING ARRAY OBJECT NONE UNKNOWN", ' ')
        .at(pps_decoder_type(*this, name));
  }
  // Of the next member.
  std::string Name() {
    const char* const name = pps_decoder_name(*this);
    return name == nullptr ? "(null)" : name;
  }
  std::string Push(const char* name) { return ErrorName(pps_decoder_push(*this, name)); }
  std::string PushArray(const char* name) { return ErrorName(pps_decoder_push_array(*this, name)); }
  std::string Pop() { return ErrorName(pps_decoder_pop(*this)); }
  std::string Next() { return ErrorName(pps_decoder_next(*this)); }
  std::string ClearStatus() { return ErrorName(pps_decoder_status(*this, true)); }
  // These must succeed.
  void Enter(const char* name = nullptr) { EXPECT_EQ(Push(name), "OK"); }
  void Leave() { EXPECT_EQ(Pop(), "OK"); }

 private:
  template <typename Value>
  std::string Get(pps_decoder_error_t (*get)(pps_decoder_t*, const char*, Value*), const char* name,
                  Value untouched) {
    Value value = untouched;
    const pps_decoder_error_t error = get(*this, name, &value);
    if (error == PPS_DECODER_OK) return Text(value);
    EXPECT_EQ(value, untouched) << "a failure leaves the variable alone";
    return ErrorName(error);
  }
  static std::string Text(const char* value) { return value; }
  static std::string Text(bool value) { return value ? "true" : "false"; }
  static std::string Text(double value) { return fuzz::ShownNumber(value); }
  static std::string Text(int value) { return std::to_string(value); }
  static std::string Text(std::int64_t value) { return std::to_string(value); }
};

// A decoder that stands in the first object, or in the JSON value.
class Entered : public Decoder {
 public:
  Entered(bool json, const std::string& text) : Decoder(json, text) { Enter(); }
};

// What a text has, behind the error that it gives. It is read in every other way as well.
std::string Read(bool json, const std::string& text) {
  std::string operations;
  for (int i = 0; i < 256; ++i) operations += static_cast<char>(i);
  fuzz::Decode(text, json, operations);
  Decoder d(json, text);
  return (d.parsed() == PPS_DECODER_OK ? "" : ErrorName(d.parsed()) + " ") + Shown(d);
}

// The parsed lines, one a row: status, object, name, encoding, value, indexes, options; a dash for
// null.
std::string Lines(const std::string& text) {
  static const char* const kObjects[] = {"one", "@two", nullptr};
  static const char* const kAttributes[] = {"a", "b", nullptr};
  static const char* const kStatus[] = {"error",   "end",       "object",    "created",
                                        "deleted", "truncated", "attribute", "gone"};
  DecodedText copy(text);
  char* p = copy.get();
  pps_attrib_t record = {};
  std::string rows;
  for (;;) {
    const char* const line = p;
    const pps_status_t status = ppsparse(&p, kObjects, kAttributes, &record, 0);
    EXPECT_EQ(record.line, line);
    EXPECT_EQ(record.options, record.option_mask);
    if (status == PPS_END) break;
    rows += kStatus[status + 1];
    for (const char* field : {record.obj_name, record.attr_name, record.encoding, record.value}) {
      rows += field == nullptr ? " -" : " [" + std::string(field) + "]";
    }
    for (const int number : {record.obj_index, record.attr_index, record.options}) {
      rows += " " + std::to_string(number);
    }
    rows += "\n";
  }
  EXPECT_EQ(*p, '\0');
  EXPECT_EQ(ppsparse(&p, nullptr, nullptr, &record, 0), PPS_END) << "the end is not left again";
  return rows;
}

// --- line parser ---------------------------------------------------------------------------------

TEST(PpsParse, EveryKindOfLine) {
  EXPECT_EQ(Lines("n:n:12\n@one\na::plain text\n-b\nj:json:{\"a\":\"b:c\"}\n"),
            "attribute - [n] [n] [12] -1 -1 0\n"
            "object [@one] - - - 0 -1 0\n"
            "attribute [@one] [a] [] [plain text] 0 0 0\n"
            "gone [@one] [b] - - 0 1 0\n"
            "attribute [@one] [j] [json] [{\"a\":\"b:c\"}] 0 -1 0\n");
  EXPECT_EQ(Lines("+@a.1\n-@a.1\n*@b\n@c:d\n|@two\n"),
            "created [@a.1] - - - -1 -1 0\ndeleted [@a.1] - - - -1 -1 0\n"
            "truncated [@b] - - - -1 -1 0\nobject [@c:d] - - - -1 -1 0\n"
            "truncated [@two] - - - 1 -1 0\n");
  EXPECT_EQ(Lines("[n]@one\n[n]a:n:1\n[x]c::\n[n]-b\n"),
            "object [@one] - - - 0 -1 1\nattribute [@one] [a] [n] [1] 0 0 1\n"
            "attribute [@one] [c] [] [] 0 -1 0\ngone [@one] [b] - - 0 1 1\n");
  // The last line needs no newline, and a carriage return is ordinary.
  EXPECT_EQ(Lines(""), "");
  EXPECT_EQ(Lines("a:strange:x\\ny\r\n\xff\x80:\x01:\xfe"),
            "attribute - [a] [strange] [x\\ny\r] -1 0 0\n"
            "attribute - [\xff\x80] [\x01] [\xfe] -1 -1 0\n");
}

TEST(PpsParse, OtherLinesAreErrorsAndAreSkipped) {
  for (const std::string& bad :
       Split("|word|a:n|:n:1|::|@|-|-@|+@|*@|+|*|+a:n:1|*a:n:1|-a:n:1| |[n|[]|[a:n:1|[]:n:1")) {
    EXPECT_EQ(Lines("@o\n" + bad + "\nb:n:2\n"),
              "object [@o] - - - -1 -1 0\nerror [@o] - - - -1 -1 0\n"
              "attribute [@o] [b] [n] [2] -1 1 0\n")
        << bad;
  }
}

// --- decoder: PPS text ---------------------------------------------------------------------------

TEST(PpsDecoder, AttributesOfEveryEncoding) {
  const std::string text =
      "@o\ns::te\\xt\nempty::\nn:n:-12\nf:n:1.5e2\nzero:n:007\nb:b:true\nb2:b:false\n"
      "c:c:a\\tb\nj:json:[1]\njs:json: \"x\\ny\" \njn:json:5\nu:what:5\n";
  EXPECT_EQ(Read(kPps, text),
            "@o={s=\"te\\xt\",empty=\"\",n=-12,f=150,zero=7,b=true,b2=false,"
            "c=\"a\tb\",j=[1],js=\"x\ny\",jn=5,u=unknown}");
  Entered d(kPps, text);
  EXPECT_EQ(InTurn({d.Type("s"), d.Type("n"), d.Type("b"), d.Type("c"), d.Type("j"), d.Type("js"),
                    d.Type("u"), d.Type("none"), d.Type(nullptr)}),
            "STRING NUMBER BOOL STRING ARRAY STRING UNKNOWN NONE STRING");
  EXPECT_EQ(d.ClearStatus(), "OK") << "asking for a type is no failure";
  EXPECT_EQ(d.Ints("zero n jn u s b j"), "7 -12 5 BAD_TYPE BAD_TYPE BAD_TYPE BAD_TYPE");
  EXPECT_EQ(InTurn({d.String("c"), d.String("c")}), "a\tb a\tb") << "escapes are resolved once";
}

TEST(PpsDecoder, ValuesThatAreNotWhatTheEncodingSays) {
  for (const std::string& bad : Split("n:|n: 1|n:1 |n:+1|n:0x1|n:1.|n:.5|n:1e|n:--1|n:-|n:five|"
                                      "n:1:2|b:|b:TRUE|b:True|b:1|b:true |b:truefalse")) {
    EXPECT_EQ(Read(kPps, "v:" + bad + "\nw::1\n"), "{v=unknown,w=\"1\"}") << bad;
  }
}

TEST(PpsDecoder, ObjectLinesAndDeletionsAddNoAttribute) {
  const std::string text = "@one\na:n:1\n-a\n+@two\na:n:2\n-@three\n";
  EXPECT_EQ(Read(kPps, text), "@one={a=1},@two={a=2},@three={}");
  Decoder d(kPps, text);
  EXPECT_EQ(pps_decoder_length(d), 3);
  while (d.Next() == "OK") continue;
  EXPECT_EQ(InTurn({d.Push(nullptr), d.Name()}), "NOT_FOUND (null)");
  d.Enter("@two");
  EXPECT_EQ(d.Int("a"), "2");
  EXPECT_EQ(Read(kPps, ""), "{}");
  EXPECT_EQ(Read(kPps, "-x\na:n:1"), "{a=1}") << "one object, without a name";
}

TEST(PpsDecoder, BrokenLinesAreReportedAndTheRestIsRead) {
  EXPECT_EQ(Read(kPps, "@o\na:n:1\nnonsense\n\nb:n:2\n"), "PARSE_ERROR @o={a=1,b=2}");
  for (const std::string cut : {"b", "b:", "b:n"}) {
    EXPECT_EQ(Read(kPps, "@o\na:n:1\n" + cut), "@o={a=1}");
    EXPECT_EQ(Read(kPps, "@o\na:n:1\n" + cut + "\n"), "PARSE_ERROR @o={a=1}") << "it is whole";
  }
}

TEST(PpsDecoder, LostChangesAndOptions) {
  EXPECT_EQ(Read(kPps, "|@o\n@o\na:n:1\n"), "@o={a=1}");
  EXPECT_EQ(Read(kPps, "|@o\na:n:1\n"), "@o={a=1}");
  EXPECT_EQ(Read(kPps, "[n]@o\n[n]a:n:1\n"), "@o={a=1}");
}

TEST(PpsDecoder, FirstOfANameIsFound) {
  Entered d(kPps, "@o\na:n:1\nb:n:2\na:n:3\nj:json:{\"x\":1,\"y\":2,\"x\":3}\n");
  EXPECT_EQ(d.Ints("b a b a"), "2 1 2 1");
  EXPECT_EQ(pps_decoder_length(d), 4);
  d.Enter("j");
  EXPECT_EQ(d.Ints("y x x y xx"), "2 1 1 2 NOT_FOUND");
}

TEST(PpsDecoder, JsonAttributes) {
  Decoder d(kPps,
            "@o\nbad:json:{\"a\":\nmpu:json:{\"version\":\"V\\u0031\",\"model\":\"M\"}\n"
            "n:json:7\n");
  EXPECT_EQ(d.parsed(), PPS_DECODER_OK);
  d.Enter();
  EXPECT_EQ(InTurn({d.Push("bad"), d.Push("bad")}), "BAD_TYPE BAD_TYPE");
  EXPECT_EQ(d.Type("bad"), "UNKNOWN");
  EXPECT_EQ(InTurn({d.Push("n"), d.PushArray("mpu")}), "BAD_TYPE BAD_TYPE");
  for (int round = 0; round < 2; ++round) {
    d.Enter("mpu");
    EXPECT_EQ(d.String("version"), "V1");
    EXPECT_EQ(d.Ints("n mpu"), "NOT_FOUND NOT_FOUND");
    EXPECT_EQ(pps_decoder_length(d), 2);
    d.Leave();
    EXPECT_EQ(d.Name(), "n") << "behind the attribute that was left";
    EXPECT_EQ(d.String("version"), "NOT_FOUND") << "right name, wrong level";
  }
  EXPECT_EQ(pps_decoder_length(d), 3);
  EXPECT_EQ(d.Int(nullptr), "7");
  EXPECT_EQ(d.Type(nullptr), "NONE");
}

TEST(PpsDecoder, CEscapes) {
  const std::pair<std::string, std::string> cases[] = {
      {"\\n\\t\\r\\a\\b\\f\\v\\\\\\\"\\'\\?", "\n\t\r\a\b\f\v\\\"'?"},
      {"\\x41\\x4a1\\x9", "AJ1\t"},
      {"\\101\\60x\\0019", "A0x\0019"},
      {"\\q\\x\\xg\\400\\8\\", "\\q\\x\\xg\\400\\8\\"},
      {"a\\0b", "a"},
      {"\\377\\xff", "\xff\xff"},
      {"plain", "plain"},
  };
  for (const auto& [escaped, value] : cases) {
    EXPECT_EQ(Read(kPps, "v:c:" + escaped + "\nw::x\n"), "{v=" + Quoted(value) + ",w=\"x\"}");
  }
}

// --- decoder: JSON text --------------------------------------------------------------------------

TEST(JsonDecoder, MalformedTextsLeaveNothingToRead) {
  // The last two lines: lone surrogates, and a number that no double holds.
  for (const std::string& text :
       Split(R"(| |{|[1,]|{"a":1,}|{"a":1]|nulll|01|+1|1.|NaN|{} {}|"|"\x41"|"\u12g4"|/**/1|)"
             "\"a\nb\"|\xef\xbb\xbf{}|[1]\v|"
             R"("\ud800"|"\ud83d\u0041"|)"
             "1e309|[-1e400]|13333333333333333333333333333333333333333333333380E+308")) {
    SCOPED_TRACE(text);
    EXPECT_EQ(Read(kJson, text), "PARSE_ERROR ");
    Decoder d(kJson, text);
    EXPECT_EQ(pps_decoder_length(d), 0);
    EXPECT_EQ(InTurn({d.Push(nullptr), d.Int("a"), d.Int(nullptr), d.Pop(), d.ClearStatus()}),
              "NOT_FOUND NOT_FOUND NOT_FOUND POP_AT_ROOT PARSE_ERROR");
  }
}

TEST(JsonDecoder, Numbers) {
  // The text, as int, int64 and double.
  const char kRows[] = R"(0 0 0 0
2147483647 2147483647 2147483647 2147483647
-2147483649 BAD_TYPE -2147483649 -2147483649
9223372036854775807 BAD_TYPE 9223372036854775807 9.2233720368547758e+18
9223372036854775808 BAD_TYPE BAD_TYPE 9.2233720368547758e+18
-9223372036854775808 BAD_TYPE -9223372036854775808 -9.2233720368547758e+18
100000000000000000000000 BAD_TYPE BAD_TYPE 9.9999999999999992e+22
1.0 BAD_TYPE BAD_TYPE 1
1e2 BAD_TYPE BAD_TYPE 100
1.7976931348623157e308 BAD_TYPE BAD_TYPE 1.7976931348623157e+308
2.2250738585072011e-308 BAD_TYPE BAD_TYPE 2.2250738585072009e-308
0e40 BAD_TYPE BAD_TYPE 0
1e-400 BAD_TYPE BAD_TYPE 0)";
  for (const std::string& row : Split(kRows, '\n')) {
    const std::string text = Split(row, ' ')[0];
    Entered d(kJson, "{\"v\":" + text + "}");
    EXPECT_EQ(InTurn({text, d.Int("v"), d.Int64("v"), d.Double("v")}), row);
    EXPECT_EQ(d.Type("v"), "NUMBER");
  }
}

TEST(JsonDecoder, StringsAndNamesAreUnescapedInPlace) {
  Entered d(kJson, R"({"a\u0062c":"\"\\\/\b\f\n\r\t","u":"\u00e4\u20ac\ud83d\ude00",)"
                   R"("nul":"a\u0000b","bytes":")"
                   "\xe2\x82\xac\xff\"}");
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(d.String("abc"), "\"\\/\b\f\n\r\t");
    EXPECT_EQ(d.String("u"), "\xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80");
    EXPECT_EQ(d.String("nul"), "a");
    EXPECT_EQ(d.String("bytes"), "\xe2\x82\xac\xff");
  }
}

TEST(JsonDecoder, ArraysAreReadElementByElement) {
  const std::string text = R"({"l":[1,"two",3.5,true,null,[6],{"seven":7},8],"behind":9})";
  EXPECT_EQ(Read(kJson, text), "{l=[1,\"two\",3.5,true,null,[6],{seven=7},8],behind=9}");
  Entered d(kJson, text);
  EXPECT_EQ(InTurn({d.PushArray("behind"), d.PushArray("l")}), "BAD_TYPE OK");
  EXPECT_EQ(pps_decoder_length(d), 8);
  EXPECT_EQ(InTurn({d.Name(), d.Int("l")}), "(null) NOT_FOUND");
  EXPECT_EQ(d.String(nullptr), "BAD_TYPE") << "what is not delivered stays the next";
  EXPECT_EQ(InTurn({d.Int(nullptr), d.Int(nullptr), d.Push(nullptr)}), "1 BAD_TYPE BAD_TYPE");
  EXPECT_EQ(InTurn({d.String(nullptr), d.Int(nullptr), d.Double(nullptr)}), "two BAD_TYPE 3.5");
  EXPECT_EQ(InTurn({d.Bool(nullptr), d.Type(nullptr), d.String(nullptr)}), "true NULL BAD_TYPE");
  EXPECT_EQ(d.Next(), "OK");
  d.Enter();
  EXPECT_EQ(InTurn({d.Int(nullptr), d.Int(nullptr)}), "6 NOT_FOUND")
      << "the end of the inner array";
  d.Leave();
  EXPECT_EQ(d.PushArray(nullptr), "BAD_TYPE");
  d.Enter();
  EXPECT_EQ(d.Int("seven"), "7");
  d.Leave();
  EXPECT_EQ(InTurn({d.Int(nullptr), d.Int(nullptr)}), "8 NOT_FOUND");
  d.ClearStatus();
  EXPECT_EQ(InTurn({d.Next(), d.ClearStatus()}), "NOT_FOUND OK")
      << "the end of a walk is no failure";
  d.Leave();
  EXPECT_EQ(InTurn({d.Name(), d.Int("behind")}), "behind 9");
}

TEST(JsonDecoder, WhereItStandsAfterPushAndPop) {
  Decoder d(kJson, R"({"o":{"i":1},"s":"x","i":2})");
  EXPECT_EQ(InTurn({d.Type(nullptr), d.Name()}), "OBJECT (null)");
  EXPECT_EQ(d.Push("o"), "NOT_FOUND") << "not a level deeper than it stands";
  EXPECT_EQ(d.PushArray(nullptr), "BAD_TYPE");
  d.Enter();
  for (const char* name : {"s", "i", "none"}) {
    EXPECT_NE(d.Push(name), "OK") << name;
    EXPECT_EQ(InTurn({d.Name(), d.Int("i")}), "o 2");
  }
  d.Enter("o");
  d.Leave();
  EXPECT_EQ(InTurn({d.Name(), d.String(nullptr), d.Name()}), "s x i");
  EXPECT_EQ(InTurn({d.String("s"), d.Name()}), "x i") << "a name is found from anywhere";
  d.Leave();
  EXPECT_EQ(InTurn({d.Pop(), d.Pop()}), "POP_AT_ROOT POP_AT_ROOT");
}

TEST(JsonDecoder, StatusKeepsTheFirstFailure) {
  Entered d(kJson, R"({"s":"x"})");
  EXPECT_EQ(InTurn({d.Ints("none s"), d.String("s")}), "NOT_FOUND BAD_TYPE x");
  EXPECT_EQ(pps_decoder_status(d, false), PPS_DECODER_NOT_FOUND);
  EXPECT_EQ(InTurn({d.ClearStatus(), d.ClearStatus()}), "NOT_FOUND OK");
  EXPECT_EQ(InTurn({d.Int("s"), d.ClearStatus()}), "BAD_TYPE BAD_TYPE");
}

TEST(Decoder, MisuseAndReuse) {
  pps_decoder_t d;
  ASSERT_EQ(pps_decoder_initialize(&d, nullptr), PPS_DECODER_OK);
  EXPECT_EQ(pps_decoder_length(&d), 0);
  EXPECT_EQ(pps_decoder_push(&d, nullptr), PPS_DECODER_NOT_FOUND) << "nothing was parsed";
  EXPECT_EQ(pps_decoder_parse_json_str(&d, nullptr), PPS_DECODER_PARSE_ERROR);
  EXPECT_EQ(pps_decoder_parse_pps_str(&d, nullptr), PPS_DECODER_PARSE_ERROR);
  EXPECT_EQ(pps_decoder_status(&d, true), PPS_DECODER_NOT_FOUND);

  DecodedText json("{\"a\":[[1]]}"), pps("@o\na::text\n"), bad("{"), direct("a:n:5\nx\n");
  ASSERT_EQ(pps_decoder_parse_json_str(&d, json.get()), PPS_DECODER_OK);
  ASSERT_EQ(pps_decoder_push(&d, nullptr), PPS_DECODER_OK);
  ASSERT_EQ(pps_decoder_push(&d, "a"), PPS_DECODER_OK);
  ASSERT_EQ(pps_decoder_parse_pps_str(&d, pps.get()), PPS_DECODER_OK);
  EXPECT_EQ(pps_decoder_pop(&d), PPS_DECODER_POP_AT_ROOT) << "stands at the root of the new text";
  ASSERT_EQ(pps_decoder_push(&d, nullptr), PPS_DECODER_OK);
  const char* value = nullptr;
  ASSERT_EQ(pps_decoder_get_string(&d, "a", &value), PPS_DECODER_OK);
  EXPECT_EQ(pps_decoder_parse_json_str(&d, bad.get()), PPS_DECODER_PARSE_ERROR);
  EXPECT_EQ(pps_decoder_length(&d), 0) << "the text before is forgotten";
  pps_decoder_cleanup(&d);
  EXPECT_STREQ(value, "text") << "lives in the text, not in the decoder";

  pps_decoder_cleanup(&d);
  EXPECT_NE(pps_decoder_push(&d, nullptr), PPS_DECODER_OK) << "after the end nothing works";
  EXPECT_EQ(pps_decoder_type(&d, nullptr), PPS_TYPE_NONE);
  EXPECT_EQ(pps_decoder_name(&d), nullptr);

  EXPECT_EQ(pps_decoder_initialize(&d, direct.get()), PPS_DECODER_PARSE_ERROR);
  EXPECT_EQ(Shown(&d), "{a=5}");
  pps_decoder_cleanup(&d);
}

// --- decoder: hostile texts ----------------------------------------------------------------------

TEST(HostileText, SeedsOfTheFuzzTargets) {
  for (const bool json : {kPps, kJson}) {
    const std::string corpus = support::SourceDir() + "/tests/fuzz/corpus/";
    for (const auto& file : std::filesystem::directory_iterator(corpus + (json ? "json" : "pps"))) {
      const std::string bytes = support::ReadFile(file.path());
      ASSERT_FALSE(bytes.empty());
      fuzz::Run(fuzz::Input(bytes), json);
    }
  }
}

// Nesting costs neither stack nor more than linear time, in reading, walking and letting go.
TEST(HostileText, AMillionLevels) {
  const int kLevels = 1000000;
  const std::string open(kLevels, '['), close(kLevels, ']');
  const std::string objects = Repeated(kLevels, "{\"a\":");
  Decoder d(kJson, open + close);
  int depth = 0;
  while (pps_decoder_push(d, nullptr) == PPS_DECODER_OK) ++depth;
  EXPECT_EQ(depth, kLevels);
  while (pps_decoder_pop(d) == PPS_DECODER_OK) --depth;
  EXPECT_EQ(depth, 0);
  EXPECT_EQ(Decoder(kJson, objects + "0" + std::string(kLevels, '}')).parsed(), PPS_DECODER_OK);
  for (const std::string& text : {open, open + std::string(kLevels, '}'), objects}) {
    EXPECT_EQ(Decoder(kJson, text).parsed(), PPS_DECODER_PARSE_ERROR);
  }
}

// The parts that are ours: lines, escapes, members. Quadratic work on any of these texts takes
// hours.
TEST(HostileText, TenMegabytesCostTimeThatGrowsWithTheText) {
  const auto start = std::chrono::steady_clock::now();
  for (const char* part : {"a::b\n", "x\n", "@o\n", ":", "a:json:{}\n", "\\"}) {
    const std::string lines =
        Repeated(10 * 1000 * 1000 / KORVANDIS_PATIENCE / std::strlen(part), part);
    EXPECT_EQ(Entered(kPps, "@p\nv:c:" + lines).Int("none"), "NOT_FOUND");
    EXPECT_EQ(Entered(kPps, lines).Int("none"), "NOT_FOUND");
  }
  const auto taken = std::chrono::steady_clock::now() - start;
  EXPECT_LT(std::chrono::duration_cast<std::chrono::seconds>(taken).count(), 60);
}

// --- encoder -------------------------------------------------------------------------------------

class Encoder {
 public:
  explicit Encoder(bool json) { pps_encoder_initialize(&encoder_, json); }
  ~Encoder() { pps_encoder_cleanup(&encoder_); }
  Encoder(const Encoder&) = delete;
  Encoder& operator=(const Encoder&) = delete;
  operator pps_encoder_t*() { return &encoder_; }

  std::string Text() {
    const char* const text = pps_encoder_buffer(&encoder_);
    if (text == nullptr) {
      EXPECT_EQ(pps_encoder_length(&encoder_), 0);
      return "(null)";
    }
    EXPECT_EQ(static_cast<std::size_t>(pps_encoder_length(&encoder_)), std::strlen(text));
    return text;
  }

 private:
  pps_encoder_t encoder_;
};

TEST(Encoder, EveryValueAsAttributeAndAsMember) {
  for (const bool json : {kPps, kJson}) {
    Encoder e(json);
    pps_encoder_start_object(e, nullptr);
    pps_encoder_add_int(e, "i", INT_MIN);
    pps_encoder_add_int64(e, "l", INT64_MIN);
    pps_encoder_add_double(e, "d", 1.5);
    pps_encoder_add_double(e, "m", std::numeric_limits<double>::max());
    pps_encoder_add_double(e, "t", 0.1);
    pps_encoder_add_bool(e, "y", true);
    pps_encoder_add_bool(e, "f", false);
    pps_encoder_add_string(e, "s", "a: b\\c\"\r\x01");
    pps_encoder_add_string(e, "c", "1\n2 \\3\t\x01\x1f\"");
    pps_encoder_add_null(e, "z");
    pps_encoder_start_array(e, "a");
    pps_encoder_add_int(e, "ignored", 1);
    pps_encoder_add_string(e, nullptr, "x\ny");
    pps_encoder_add_null(e, nullptr);
    pps_encoder_start_object(e, nullptr);
    pps_encoder_end_object(e);
    pps_encoder_start_array(e, nullptr);
    pps_encoder_end_array(e);
    pps_encoder_end_array(e);
    pps_encoder_end_object(e);
    EXPECT_EQ(e.Text(), json ? R"({"i":-2147483648,"l":-9223372036854775808,"d":1.5,)"
                               R"("m":1.7976931348623157e+308,"t":0.1,"y":true,"f":false,)"
                               R"("s":"a: b\\c\"\r\u0001","c":"1\n2 \\3\t\u0001\u001F\"",)"
                               R"("z":null,"a":[1,"x\ny",null,{},[]]})"
                             : "i:n:-2147483648\nl:n:-9223372036854775808\nd:n:1.5\n"
                               "m:n:1.7976931348623157e+308\nt:n:0.1\ny:b:true\nf:b:false\n"
                               "s::a: b\\c\"\r\x01\nc:c:1\\n2 \\\\3\\t\\001\\037\"\n"
                               "z:json:null\na:json:[1,\"x\\ny\",null,{},[]]\n");
  }
}

TEST(Encoder, FailuresStickAndLeaveNoBuffer) {
  // What `act` does in an open object fails with `error`.
  const auto fails = [](pps_encoder_error_t error, const char* what, const auto& act) {
    SCOPED_TRACE(what);
    Encoder e(kPps);
    pps_encoder_start_object(e, "@o");
    act(e);
    EXPECT_EQ(pps_encoder_add_string(e, "later", nullptr), error) << "the first failure stays";
    EXPECT_EQ(pps_encoder_add_bool(e, "later", true), error);
    EXPECT_EQ(e.Text(), "(null)");
    pps_encoder_end_object(e);
    EXPECT_EQ(e.Text(), "(null)");
  };
  using E = pps_encoder_t*;
  const auto invalid = PPS_ENCODER_INVALID_VALUE;
  fails(invalid, "null text", [](E e) { pps_encoder_add_string(e, "a", nullptr); });
  fails(invalid, "infinite", [](E e) { pps_encoder_add_double(e, "a", HUGE_VAL); });
  const auto nameless = PPS_ENCODER_MISSING_PROP_NAME;
  fails(nameless, "a number", [](E e) { pps_encoder_add_int(e, nullptr, 1); });
  fails(nameless, "in JSON", [](E e) {
    pps_encoder_start_object(e, "a");
    pps_encoder_add_null(e, nullptr);
  });
  const auto nesting = PPS_ENCODER_BAD_NESTING;
  fails(nesting, "wrong end", [](E e) { pps_encoder_end_array(e); });
  fails(nesting, "end too many", [](E e) {
    pps_encoder_end_object(e);
    pps_encoder_end_object(e);
  });
  fails(nesting, "outside of the object", [](E e) {
    pps_encoder_end_object(e);
    pps_encoder_add_int(e, "a", 1);
  });
}

TEST(Encoder, NamesThatALineCannotHold) {
  for (const std::string& name : Split("#a:b#a\nb#@a#-a#+a#*a#|a#[a", '#')) {
    SCOPED_TRACE(name);
    Encoder e(kPps), deep(kPps);
    pps_encoder_start_object(e, "o");
    EXPECT_EQ(pps_encoder_add_int(e, name.c_str(), 1), PPS_ENCODER_INVALID_VALUE);
    pps_encoder_start_object(deep, "o");
    pps_encoder_start_object(deep, "j");
    EXPECT_EQ(pps_encoder_add_int(deep, name.c_str(), 1), PPS_ENCODER_OK) << "JSON holds any name";
  }
  for (const char* name : {"", "@", "a\nb"}) {
    EXPECT_EQ(pps_encoder_start_object(Encoder(kPps), name), PPS_ENCODER_INVALID_VALUE) << name;
  }
}

TEST(Encoder, SeveralObjectsAndSingleValues) {
  Encoder e(kPps), json(kJson);
  EXPECT_EQ(e.Text(), "");
  for (const char* name : {"one", "@two"}) {
    pps_encoder_start_object(e, name);
    pps_encoder_end_object(e);
  }
  EXPECT_EQ(e.Text(), "@one\n@two\n");
  pps_encoder_add_string(json, nullptr, "x");
  EXPECT_EQ(json.Text(), "\"x\"");
  EXPECT_EQ(pps_encoder_add_int(json, nullptr, 1), PPS_ENCODER_BAD_NESTING) << "one value only";
  pps_encoder_reset(json);
  const std::string large(100000, 'x');
  pps_encoder_add_string(json, nullptr, large.c_str());
  EXPECT_EQ(json.Text(), Quoted(large));
}

// --- round trips ---------------------------------------------------------------------------------

// A piece of the encoder walk's input.
std::string Piece(const std::string& text) {
  return std::string(1, static_cast<char>(text.size())) + text;
}

std::string Call(int call, const std::string& name, const std::string& value = "") {
  return std::string(1, static_cast<char>(call)) + Piece(name) + value;
}

TEST(RoundTrip, EveryCharacterInEveryPlace) {
  for (int c = 1; c < 256; ++c) {
    const std::string one(1, static_cast<char>(c));
    for (const std::string& value : {one, "a" + one + "\n\\" + one + "7"}) {
      const std::string calls = Call(fuzz::kAddString, "top", Piece(value)) +
                                Call(fuzz::kStartObject, "j") +
                                Call(fuzz::kAddString, value, Piece(value));
      for (const bool json : {kPps, kJson}) EXPECT_TRUE(fuzz::Encode(fuzz::Input(calls), json));
    }
  }
}

}  // namespace
