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
#include <random>
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

std::string RandomBytes(std::mt19937* random, std::size_t count) {
  std::string bytes(count, '\0');
  for (char& byte : bytes) byte = static_cast<char>((*random)());
  return bytes;
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

// The parsed lines, one a row: status, object, name, encoding, value; a dash for null.
std::string Lines(const std::string& text) {
  DecodedText copy(text);
  char* p = copy.get();
  pps_attrib_t record = {};
  std::string rows;
  for (;;) {
    const pps_status_t status = ppsparse(&p, &record);
    rows += std::to_string(status);
    for (const char* field : {record.obj_name, record.attr_name, record.encoding, record.value}) {
      rows += field == nullptr ? " -" : " [" + std::string(field) + "]";
    }
    if (status == PPS_END) break;
    rows += "\n";
  }
  EXPECT_EQ(*p, '\0');
  EXPECT_EQ(ppsparse(&p, &record), PPS_END) << "the end is not left again";
  return rows;
}

// --- line parser ---------------------------------------------------------------------------------

TEST(PpsParse, EveryKindOfLine) {
  EXPECT_EQ(Lines("@obj\nname::plain text\nn:n:12\n-gone\nj:json:{\"a\":\"b:c\"}\n"),
            "2 [@obj] - - -\n"
            "6 [@obj] [name] [] [plain text]\n"
            "6 [@obj] [n] [n] [12]\n"
            "7 [@obj] [gone] - -\n"
            "6 [@obj] [j] [json] [{\"a\":\"b:c\"}]\n"
            "0 [@obj] - - -");
  EXPECT_EQ(Lines("+@a.1\n-@a.1\n*@b\n@c:d\n"),
            "3 [@a.1] - - -\n4 [@a.1] - - -\n5 [@b] - - -\n2 [@c:d] - - -\n0 [@c:d] - - -");
  // The last line needs no newline, and a carriage return is ordinary.
  EXPECT_EQ(Lines(""), "0 - - - -");
  EXPECT_EQ(Lines("a::"), "6 - [a] [] []\n0 - - - -");
  EXPECT_EQ(Lines("@o"), "2 [@o] - - -\n0 [@o] - - -");
  EXPECT_EQ(Lines("a::x\\ny\r\n"), "6 - [a] [] [x\\ny\r]\n0 - - - -");
  EXPECT_EQ(Lines("a:strange:v"), "6 - [a] [strange] [v]\n0 - - - -");
  EXPECT_EQ(Lines("\xff\x80:\x01:\xfe"), "6 - [\xff\x80] [\x01] [\xfe]\n0 - - - -");
}

TEST(PpsParse, OtherLinesAreErrorsAndAreSkipped) {
  for (const std::string& bad :
       Split("|word|a:n|:n:1|::|@|-|-@|+@|*@|+|*|+a:n:1|*a:n:1|-a:n:1| ")) {
    EXPECT_EQ(Lines("@o\n" + bad + "\nb:n:2\n"),
              "2 [@o] - - -\n1 [@o] - - -\n6 [@o] [b] [n] [2]\n0 [@o] - - -")
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
}

TEST(PpsDecoder, TextWithoutObjectLineIsOneObject) {
  EXPECT_EQ(Read(kPps, ""), "{}");
  for (const char* text : {"a:n:1", "a:n:1\n", "-x\na:n:1"}) {
    EXPECT_EQ(Read(kPps, text), "{a=1}") << text;
  }
}

TEST(PpsDecoder, BrokenLinesAreReportedAndTheRestIsRead) {
  EXPECT_EQ(Read(kPps, "@o\na:n:1\nnonsense\n\nb:n:2\n"), "PARSE_ERROR @o={a=1,b=2}");
  for (const std::string cut : {"b", "b:", "b:n"}) {
    EXPECT_EQ(Read(kPps, "@o\na:n:1\n" + cut), "@o={a=1}");
    EXPECT_EQ(Read(kPps, "@o\na:n:1\n" + cut + "\n"), "PARSE_ERROR @o={a=1}") << "it is whole";
  }
}

TEST(PpsDecoder, FirstOfANameIsFound) {
  Entered d(kPps, "@o\na:n:1\nb:n:2\na:n:3\nj:json:{\"x\":1,\"y\":2,\"x\":3}\n");
  EXPECT_EQ(d.Ints("b a b a"), "2 1 2 1");
  EXPECT_EQ(pps_decoder_length(d), 4);
  d.Enter("j");
  EXPECT_EQ(d.Ints("y x x y"), "2 1 1 2");
  // Names that begin alike, and one that is the beginning of another.
  Entered alike(kPps, "version_long:n:1\nversion:n:2\nversio:n:3\nversion_lonG:n:4\n");
  EXPECT_EQ(alike.Ints("version versio version_long version_lonG"), "2 3 1 4");
  for (const char* none : {"versi", "version_", "version_long_", "VERSION", ""}) {
    EXPECT_EQ(alike.Int(none), "NOT_FOUND") << none;
  }
}

TEST(PpsDecoder, JsonAttributesAreCheckedWhenEnteredAndOnlyThen) {
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
  EXPECT_EQ(d.Type(nullptr), "NONE") << "the tape behind belongs to no level";
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

TEST(JsonDecoder, WellFormedTexts) {
  for (const std::string& text :
       Split("{}|[]| \t\r\n[ ] \n|0|-0|\"\"|null|true|false|[[],{},[[]]]|{\"\":{}}|1e5|1E-5|1.0e+5|"
             "{ \"a\" : [ 1 , 2 ] , \"b\" : null }|\"\\\"\\\\\\/\\b\\f\\n\\r\\t\\u00e4\"|"
             "\"\x7f\xff\x80\"|[\"\\ud800\",\"\\udc00x\"]")) {
    EXPECT_EQ(Read(kJson, text).find("PARSE_ERROR"), std::string::npos) << text;
  }
}

TEST(JsonDecoder, MalformedTextsLeaveNothingToRead) {
  std::vector<std::string> texts = Split(
      R"(| |{|}|[|]|[1|[1,|[1,]|[,1]|[1 2]|[1}|{"a":1]|{1:2}|{"a"}|{"a":}|{"a":1,}|{,}|{"a" 1}|)"
      R"({"a":1 "b":2}|{a:1}|{'a':1}|nul|nulll|True|tru|truex|falsy|01|-|-a|+1|1.|.1|1.e1|1e|1e+|)"
      R"(0x1|1 1|{} {}|[] x|NaN|Infinity|"|"abc|"\|"\"|"\x41"|"\u12"|"\u12g4"|"\u"|"\a"|)"
      R"("\ud800\u12"|/**/1|"a" "b"|{"a":1}}|[[1]|[-]|[1-2]|-01|[00]|)"
      R"("a long text behind which a bad escape stands \z"|)"
      "\"a\nb\"|\"a\tb\"|\"\x01\"|\xef\xbb\xbf{}|[1]\v");
  for (const std::size_t size : {1U, 150U, 200U, 400U, 5000U}) {
    texts.push_back("[" + Repeated(size, "1,") + "x]");
  }
  for (const std::string& text : texts) {
    SCOPED_TRACE(text);
    EXPECT_EQ(Read(kJson, text), "PARSE_ERROR ");
    Decoder d(kJson, text);
    EXPECT_EQ(pps_decoder_length(d), 0);
    EXPECT_EQ(InTurn({d.Push(nullptr), d.Int("a"), d.Int(nullptr), d.Pop(), d.ClearStatus()}),
              "NOT_FOUND NOT_FOUND NOT_FOUND POP_AT_ROOT PARSE_ERROR");
  }
}

TEST(JsonDecoder, Integers) {
  // The text, as int, int64 and double.
  const char kRows[] = R"(0 0 0 0
-0 0 0 -0
2147483647 2147483647 2147483647 2147483647
-2147483648 -2147483648 -2147483648 -2147483648
2147483648 BAD_TYPE 2147483648 2147483648
-2147483649 BAD_TYPE -2147483649 -2147483649
4294967297 BAD_TYPE 4294967297 4294967297
9223372036854775807 BAD_TYPE 9223372036854775807 9.2233720368547758e+18
9223372036854775808 BAD_TYPE BAD_TYPE 9.2233720368547758e+18
-9223372036854775808 BAD_TYPE -9223372036854775808 -9.2233720368547758e+18
-9223372036854775809 BAD_TYPE BAD_TYPE -9.2233720368547758e+18
18446744073709551617 BAD_TYPE BAD_TYPE 1.8446744073709552e+19
100000000000000000000000 BAD_TYPE BAD_TYPE 9.9999999999999992e+22
1.0 BAD_TYPE BAD_TYPE 1
1e2 BAD_TYPE BAD_TYPE 100
1E0 BAD_TYPE BAD_TYPE 1)";
  for (const std::string& row : Split(kRows, '\n')) {
    const std::string text = Split(row, ' ')[0];
    Entered d(kJson, "{\"v\":" + text + "}");
    EXPECT_EQ(InTurn({text, d.Int("v"), d.Int64("v"), d.Double("v")}), row);
    EXPECT_EQ(d.Type("v"), "NUMBER");
  }
}

TEST(JsonDecoder, DoublesAreTheNearestOnes) {
  // Z stands for 400 zeros.
  const auto numbers = [](const std::string& words) {
    std::string text;
    for (const char c : words) text += c == 'Z' ? std::string(400, '0') : std::string(1, c);
    return Split(text, ' ');
  };
  for (const std::string& text : numbers(
           "0.1 -0.0 39.908722 116.397499 3.141592653589793 9007199254740993 9007199254740992.5 "
           "1.7976931348623157e308 2.2250738585072014e-308 5e-324 0.30000000000000004 -0.1e1 "
           "123456789012345678901234567890 0.000001 1e22 1e23 1e-22 1e-23 8.5e22 1Ze-400 "
           "7.2057594037927933e16 0.Z1e401 0.Z12345678901234567890123e401 "
           "1.00000000000000000000000000000000000000001 0e999999999999999999999")) {
    EXPECT_EQ(Decoder(kJson, text).Double(nullptr),
              fuzz::ShownNumber(std::strtod(text.c_str(), nullptr)))
        << text;
  }
  for (const std::string& large :
       numbers("1e309 -1e400 1Z 1Z.5 0.Z1e1000 1e99999999999999999999")) {
    EXPECT_EQ(Decoder(kJson, large).Double(nullptr), "BAD_TYPE") << large;
    EXPECT_EQ(Decoder(kJson, large).Int64(nullptr), "BAD_TYPE") << large;
  }
  for (const std::string& small :
       numbers("1e-400 1e-99999999999999999999 0.Z1 0.Z1234567890123456789012345 1Ze-900")) {
    EXPECT_EQ(Decoder(kJson, small).Double(nullptr), "0") << small;
  }
  std::mt19937_64 random(7);
  for (int i = 0; i < 20000; ++i) {
    const std::uint64_t bits = random();
    double value;
    std::memcpy(&value, &bits, sizeof(value));
    if (!std::isfinite(value)) continue;
    char text[40];
    std::snprintf(text, sizeof(text), i % 2 == 0 ? "%.17g" : "%.25e", value);
    ASSERT_EQ(Decoder(kJson, text).Double(nullptr), fuzz::ShownNumber(value)) << text;
  }
}

TEST(JsonDecoder, StringsAndNamesAreUnescapedInPlace) {
  Entered d(kJson,
            R"({"a\u0062c":"\"\\\/\b\f\n\r\t","u":"\u0041\u00e4\u20ac\ud83d\ude00",)"
            R"("lone":"x\ud83dy\ude00\ud83d\u0041","nul":"a\u0000b","last":")"
            "\xe2\x82\xac\","
            R"("a rather long name\twith a tab":"before the escape \n and a long way behind it"})");
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(d.String("abc"), "\"\\/\b\f\n\r\t");
    EXPECT_EQ(d.String("u"), "A\xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80");
    EXPECT_EQ(d.String("lone"), "x\xef\xbf\xbdy\xef\xbf\xbd\xef\xbf\xbd\x41");
    EXPECT_EQ(d.String("nul"), "a");
    EXPECT_EQ(d.String("last"), "\xe2\x82\xac");
    EXPECT_EQ(d.String("a rather long name\twith a tab"),
              "before the escape \n and a long way behind it");
  }
  EXPECT_EQ(d.String("a\\u0062c"), "NOT_FOUND");
}

TEST(JsonDecoder, StringsOfEveryLengthAroundTheWord) {
  for (std::size_t length = 0; length < 40; ++length) {
    ASSERT_EQ(Read(kJson, Quoted(std::string(length, 'x'))), Quoted(std::string(length, 'x')));
    for (std::size_t special = 0; special < length; ++special) {
      std::string bare(length, 'x');
      bare[special] = '\n';
      const std::string escaped = std::string(bare).replace(special, 1, "\\n");
      ASSERT_EQ(Read(kJson, Quoted(escaped)), Quoted(bare));
      ASSERT_EQ(Read(kJson, Quoted(bare)), "PARSE_ERROR ") << length << " " << special;
    }
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

TEST(Decoder, NamesOfEveryLength) {
  for (std::size_t length = 0; length < 300; length += length < 24 ? 1 : 23) {
    const std::string name(length, 'n'), other = length == 0 ? "" : name.substr(1) + "m";
    const std::string json = "{\"" + name + "\":1,\"" + name + "n\":2,\"" + other + "o\":3}";
    for (const std::string& text : {json, "[" + json + "," + json + "]"}) {
      Entered d(kJson, text);
      if (text[0] == '[') {
        d.Next();
        d.Enter();
      }
      EXPECT_EQ(d.Ints(name + " " + name + "n " + other + "o " + other + "o " + name), "1 2 3 3 1");
      EXPECT_EQ(d.Int(other.c_str()), length == 0 ? "1" : "NOT_FOUND") << length;
      EXPECT_EQ(d.Name(), name);
    }
    if (length == 0) continue;
    Entered pps(kPps, name + ":n:1\n" + name + "n::text\n");
    EXPECT_EQ(InTurn({pps.Int(name.c_str()), pps.String((name + "n").c_str())}), "1 text")
        << length;
  }
}

// --- decoder: objects that are like the one before -----------------------------------------------

// An object of a few members that are mostly those of the ones before, in text that is sometimes
// broken.
std::string RandomObject(std::mt19937* random) {
  static const std::vector<std::string> kNames = Split(
      "id|cno|used|azimuth|elevation|a_name_of_sixteen|sixteen_letters_|id|i\\u0064||elevatioN");
  static const std::vector<std::string> kValues =
      Split(R"(1|12|123|1234|0|0.5|12.25|123.456|1.2345|1234.5|-7|1e2|1.5e1|true|false|null|"")"
            R"(|"text"|"a,\"}"|[]|{}|[5,6]|{"x":8}|2147483647|2147483648|9223372036854775808)");
  static const std::vector<std::string> kBroken =
      Split("00|01|1.|.5|1.e1|truf|falsy|tru|-|1a|0x1|12.5E");
  const auto below = [random](std::size_t limit) { return (*random)() % limit; };
  const auto any = [below](const auto& list) { return list[below(list.size())]; };
  const bool spaced = below(12) == 0;
  const auto gap = [&] { return std::string(spaced || below(60) == 0 ? " " : ""); };
  std::string text = "{" + gap();
  const std::size_t count = below(10) == 0 ? below(24) : 5;
  for (std::size_t i = 0; i < count; ++i) {
    if (i != 0) text += gap() + "," + gap();
    text += Quoted(below(12) == 0 ? any(kNames) : kNames[i % 5]) + gap() + ":" + gap();
    text += below(100) == 0 ? any(kBroken) : any(kValues);
  }
  return text + (below(60) == 0 ? "]" : "}");
}

TEST(AlikeObjects, ReadAsOthersDo) {
  std::mt19937 random(11);
  int well = 0;
  const int rounds = 6000 / KORVANDIS_PATIENCE;
  for (int round = 0; round < rounds; ++round) {
    std::string text = "{\"list\":[" + RandomObject(&random);
    for (auto more = random() % 6; more > 0; --more) text += "," + RandomObject(&random);
    text += "],\"behind\":7}";
    fuzz::Decode(text, kJson, RandomBytes(&random, 100));
    if (Decoder(kJson, text).parsed() == PPS_DECODER_OK) ++well;
  }
  EXPECT_GT(well, rounds / 6);
  EXPECT_LT(well, rounds * 5 / 6);
}

TEST(AlikeObjects, MayHaveSpacesWhereTheOneBeforeHasNone) {
  const std::string first = R"([{"id":1,"used":true},{"id":2,"used":false},)";
  const std::string shown = "[{id=1,used=true},{id=2,used=false},{id=3,used=true}]";
  for (const std::string& third : Split(R"({ "id":3,"used":true}|{"id" :3,"used":true}|)"
                                        R"({"id": 3,"used":true}|{"id":3 ,"used":true}|)"
                                        R"({"id":3, "used":true}|{"id":3,"used": true }| {"id":3,)"
                                        "\"used\":\t\r\ntrue}")) {
    EXPECT_EQ(Read(kJson, first + third + "                 ]"), shown) << third;
  }
}

TEST(AlikeObjects, OverEveryGrowth) {
  for (int elements = 1; elements < 500; elements += elements < 70 ? 1 : 37) {
    for (std::size_t before = 0; before < 6; ++before) {  // moves where the nodes run out
      std::string text = "[" + Repeated(before, "0,"), shown = text;
      for (int i = 0; i < elements; ++i) {
        const std::string n = std::to_string(i), comma = i == 0 ? "" : ",";
        text += comma + R"({"a":)" + n + R"(,"b":true,"c":)" + n + R"(.5,"d":")" + n + "\"}";
        shown += comma + "{a=" + n + ",b=true,c=" + n + ".5,d=" + Quoted(n) + "}";
      }
      ASSERT_EQ(Shown(Decoder(kJson, text + "]")), shown + "]");
    }
  }
}

TEST(AlikeObjects, WhatIsLikelyIsCheckedAllTheSame) {
  // Behind the last member there is another object's.
  Entered d(kJson, R"({"o":{"x":1},"y":2,"p":{"x":3},"z":4})");
  d.Enter("o");
  EXPECT_EQ(d.Ints("x y"), "1 NOT_FOUND");
  d.Leave();
  EXPECT_EQ(d.Int("y"), "2");
  d.Enter("p");
  EXPECT_EQ(d.Ints("z x"), "NOT_FOUND 3");
  // A name that comes twice, and names with like beginnings.
  Entered list(
      kJson, R"([{"elevation":1,"b":2},{"elevation":3,"b":4},{"elevation":5,"b":6,"elevation":7},)"
             R"({"elevation":8,"b":9},{"elevatioN":10,"b":11},{"elevation":12}])");
  for (const char* read :
       {"1 2 1", "3 4 3", "5 6 5", "8 9 8", "NOT_FOUND 11 NOT_FOUND", "12 NOT_FOUND 12"}) {
    list.Enter();
    EXPECT_EQ(list.Ints("elevation b elevation"), read);
    list.Leave();
  }
}

// --- decoder: hostile texts ----------------------------------------------------------------------

struct Sample {
  bool json;
  std::string text;
};
const Sample kSamples[] = {
    {kJson, R"({"latitude":39.908722,"neg":-1.5e-3,"n":[1,22,333,4444,55555],"t":true,"f":false,)"
            R"("z":null,"s":"esc \"\\\u00e4\ud83d\ude00 end","o":{"i":{"j":[[],{}]}},"e":""})"},
    {kPps,
     "@sample\nplain::text\nnumber:n:-12.5e1\nflag:b:true\nc:c:a\\n\\x41\\101\\\\b\n-gone\n"
     "+@second\nj:json:{\"version\":\"1.2\",\"list\":[1,{\"a\":\"\\u0041\"}]}\nodd:what:x\n"},
    {kJson, R"([{"id":1,"on":true,"f":0.25},{"id":22,"on":false,"f":12},{"id":333,"on":true,)"
            R"("f":3.125},{"id":4,"on":false,"f":1}])"},
};

TEST(HostileText, CutOrBentAnywhere) {
  for (const auto& [json, text] : kSamples) {
    for (std::size_t length = 0; length <= text.size(); ++length) {
      const bool broken = Read(json, text.substr(0, length)).rfind("PARSE_ERROR ", 0) == 0;
      EXPECT_EQ(broken, json && length < text.size()) << "cut at " << length;
      std::string bent = text;
      for (const char byte : std::string("\"0e.,}{ \n")) {
        if (length < text.size()) bent[length] = byte;
        Read(json, bent);
      }
    }
  }
}

TEST(HostileText, RandomMutations) {
  std::mt19937 random(42);
  const std::string interesting = "{}[]\",:\\\n-+.eEu0919tfn@* \t\x7f\x80\xff\x01";
  for (int round = 0; round < 40000 / KORVANDIS_PATIENCE; ++round) {
    auto [json, text] = kSamples[round % 3];
    for (unsigned count = 1 + random() % 4; count > 0; --count) {
      const std::size_t at = random() % text.size();
      const char byte = random() % 3 == 0 ? static_cast<char>(1 + random() % 255)
                                          : interesting[random() % interesting.size()];
      const std::size_t removed = random() % 4;
      text.replace(at, removed, random() % 3, byte);
    }
    fuzz::Decode(text, json, RandomBytes(&random, 20));
  }
}

TEST(HostileText, WhatTheFuzzTargetsFound) {
  for (const bool json : {kPps, kJson}) {
    const std::string corpus = support::SourceDir() + "/tests/fuzz/corpus/";
    int inputs = 0;
    for (const auto& file : std::filesystem::directory_iterator(corpus + (json ? "json" : "pps"))) {
      const std::string bytes = support::ReadFile(file.path());
      fuzz::Run(fuzz::Input(bytes), json);
      ++inputs;
    }
    EXPECT_GT(inputs, 10);
  }
}

TEST(HostileText, AMillionLevels) {
  const int kLevels = 1000000;
  const std::string open(kLevels, '['), close(kLevels, ']');
  {
    Decoder d(kJson, open + close);
    ASSERT_EQ(d.parsed(), PPS_DECODER_OK);
    int depth = 0;
    while (pps_decoder_push(d, nullptr) == PPS_DECODER_OK) ++depth;
    EXPECT_EQ(depth, kLevels);
    while (pps_decoder_pop(d) == PPS_DECODER_OK) --depth;
    EXPECT_EQ(depth, 0);
  }
  const std::string objects = Repeated(kLevels, "{\"a\":");
  EXPECT_EQ(Decoder(kJson, objects + "0" + std::string(kLevels, '}')).parsed(), PPS_DECODER_OK);
  for (const std::string& text : {open, open + close.substr(1), open + close + "]",
                                  open + std::string(kLevels, '}'), objects}) {
    EXPECT_EQ(Decoder(kJson, text).parsed(), PPS_DECODER_PARSE_ERROR);
  }
  Entered attribute(kPps, "a:json:" + open + "\nb:json:" + open + close + "\n");
  EXPECT_EQ(InTurn({attribute.Push("a"), attribute.Push("b")}), "BAD_TYPE OK");
}

TEST(HostileText, TenMegabytesCostTimeThatGrowsWithTheText) {
  const auto repeated = [](const std::string& part) {
    return Repeated(10 * 1000 * 1000 / KORVANDIS_PATIENCE / part.size(), part);
  };
  const auto start = std::chrono::steady_clock::now();
  // What stands before, what is repeated, and what stands behind.
  for (const std::string& parts :
       Split(R"([_1,_1]|"_\n_"|"_\ud800_"|"_x_"|_9_|0._0_1|1e_9_|_ _|[_[],_[]]|{_"a":1,_"a":1}|)"
             R"([_1e-320,_0]|_\_)")) {
    const std::vector<std::string> part = Split(parts, '_');
    const std::string text = part[0] + repeated(part[1]) + part[2];
    Entered attribute(kPps, "a:json:" + text + "\nb:c:" + text + "\nc:n:" + text + "\n");
    for (const char* name : {"a", "b", "c"}) attribute.Double(name);
    Decoder(kJson, text).Double(nullptr);
  }
  for (const char* part : {"a::b\n", "\n", "x\n", "@o\n", "-a\n", ":", "a:json:{}\n", "\r"}) {
    const std::string lines = repeated(part);
    EXPECT_EQ(Entered(kPps, lines).Int("none"), "NOT_FOUND");
    DecodedText copy(lines);
    char* p = copy.get();
    pps_attrib_t record = {};
    while (ppsparse(&p, &record) != PPS_END) continue;
  }
  const auto taken = std::chrono::steady_clock::now() - start;
  // About 0.6 s here; quadratic work on any of these texts takes hours.
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

TEST(Encoder, TextsOfTheService) {
  Encoder setting(kPps);
  pps_encoder_start_object(setting, "@setting_status");
  pps_encoder_add_int(setting, "zmregion", 6);
  EXPECT_EQ(setting.Text(), "(null)") << "not while the object is open";
  pps_encoder_end_object(setting);
  EXPECT_EQ(setting.Text(), "@setting_status\nzmregion:n:6\n");

  Encoder location(kPps);
  pps_encoder_start_object(location, "control");
  pps_encoder_add_string(location, "msg", "location");
  pps_encoder_start_object(location, "dat");
  pps_encoder_add_int(location, "period", 1);
  pps_encoder_add_string(location, "provider", "gnss");
  pps_encoder_add_string(location, "fix_type", "");
  pps_encoder_end_object(location);
  EXPECT_EQ(pps_encoder_end_object(location), PPS_ENCODER_OK);
  EXPECT_EQ(location.Text(),
            "@control\nmsg::location\ndat:json:{\"period\":1,\"provider\":\"gnss\","
            "\"fix_type\":\"\"}\n");
}

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
                               R"("s":"a: b\\c\"\r\u0001","c":"1\n2 \\3\t\u0001\u001f\"",)"
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
  fails(invalid, "not a number", [](E e) { pps_encoder_add_double(e, "a", std::nan("")); });
  const auto nameless = PPS_ENCODER_MISSING_PROP_NAME;
  fails(nameless, "a number", [](E e) { pps_encoder_add_int(e, nullptr, 1); });
  fails(nameless, "an object", [](E e) { pps_encoder_start_object(e, nullptr); });
  fails(nameless, "in JSON", [](E e) {
    pps_encoder_start_object(e, "a");
    pps_encoder_add_null(e, nullptr);
  });
  const auto nesting = PPS_ENCODER_BAD_NESTING;
  fails(nesting, "wrong end", [](E e) { pps_encoder_end_array(e); });
  fails(nesting, "wrong end of an array", [](E e) {
    pps_encoder_start_array(e, "a");
    pps_encoder_end_object(e);
  });
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
  for (const std::string& name : Split("|a:b|a\nb|@a|-a|+a|*a")) {
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

TEST(Encoder, DepthIsBounded) {
  for (const bool json : {kPps, kJson}) {
    Encoder e(json), deep(json);
    pps_encoder_start_object(e, "o");
    for (int i = 1; i < kPpsEncoderMaxDepth; ++i) {
      ASSERT_EQ(pps_encoder_start_array(e, "a"), PPS_ENCODER_OK);
    }
    for (int i = 1; i < kPpsEncoderMaxDepth; ++i) pps_encoder_end_array(e);
    EXPECT_EQ(pps_encoder_end_object(e), PPS_ENCODER_OK);
    EXPECT_NE(e.Text(), "(null)");
    for (int i = 0; i < kPpsEncoderMaxDepth; ++i) pps_encoder_start_object(deep, "o");
    EXPECT_EQ(pps_encoder_start_object(deep, "o"), PPS_ENCODER_BAD_NESTING);
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
}

TEST(Encoder, GrowsPastTheInlineBufferAtEveryLength) {
  for (std::size_t length = kPpsEncoderInline - 12; length < kPpsEncoderInline + 12; ++length) {
    const std::string value(length, 'v');
    Encoder e(kPps);
    pps_encoder_start_object(e, "o");
    pps_encoder_add_string(e, "s", value.c_str());
    pps_encoder_end_object(e);
    EXPECT_EQ(e.Text(), "@o\ns::" + value + "\n");
  }
  Encoder e(kJson);
  pps_encoder_start_array(e, nullptr);
  std::string expected = "[";
  for (int i = 0; i < 20000; ++i) {
    pps_encoder_add_int(e, nullptr, i);
    expected += (i == 0 ? "" : ",") + std::to_string(i);
  }
  pps_encoder_end_array(e);
  EXPECT_EQ(e.Text(), expected + "]");
  pps_encoder_cleanup(e);
  EXPECT_EQ(e.Text(), "") << "it is as it was at the start";
  pps_encoder_add_string(e, nullptr, expected.c_str());
  EXPECT_EQ(e.Text(), Quoted(expected)) << "twice the room is not enough";
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
  std::vector<std::string> values = Split(
      "|\n|\\|\\n|a\n\\n\n0|\n\x01\x31|\x7f|gr\xc3\xbc\xc3\x9f\n\xe2\x82\xac \xf0\x9f\x98\x80|"
      "\"quoted\"|trailing\\\n\\");
  for (int c = 1; c < 256; ++c) {
    const std::string one(1, static_cast<char>(c));
    values.push_back(one);
    values.push_back("a" + one + "\n" + one + "7");
  }
  for (const std::string& value : values) {
    const std::string calls = Call(fuzz::kAddString, "top", Piece(value)) +
                              Call(fuzz::kStartObject, "j") +
                              Call(fuzz::kAddString, value, Piece(value));
    for (const bool json : {kPps, kJson}) EXPECT_TRUE(fuzz::Encode(fuzz::Input(calls), json));
  }
}

TEST(RoundTrip, Numbers) {
  std::mt19937_64 random(3);
  for (int i = 0; i < 5000; ++i) {
    const std::uint64_t bits = random() >> (random() % 64);
    const std::int64_t integer = static_cast<std::int64_t>(bits) * (i % 2 == 0 ? 1 : -1);
    double real;
    std::memcpy(&real, &bits, sizeof(real));
    Encoder e(kPps);
    pps_encoder_start_object(e, "o");
    pps_encoder_add_int64(e, "i", integer);
    pps_encoder_add_double(e, "r", std::isfinite(real) ? real : 0.5);
    pps_encoder_end_object(e);
    Entered d(kPps, e.Text());
    ASSERT_EQ(d.Int64("i"), std::to_string(integer));
    ASSERT_EQ(d.Double("r"), fuzz::ShownNumber(std::isfinite(real) ? real : 0.5));
  }
}

}  // namespace
