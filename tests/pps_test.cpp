// The PPS library: line parser, decoder, encoder, and the three together.
#include <gtest/gtest.h>
#include <pps.h>
#include <pps_walk.h>

#include <chrono>
#include <climits>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <iomanip>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

#include "support/fixture.h"

namespace {

using fuzz::DecodedText;
using Encoder = fuzz::Encoding;
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

std::string ErrorName(pps_decoder_error_t error) {
  return Split("OK NO_MEM BAD_TYPE NOT_FOUND PARSE_ERROR POP_AT_ROOT", ' ').at(error);
}

// A decoder whose calls tell the error or the value as text.
class Decoder : public fuzz::Decoding {
 public:
  Decoder(bool json, const std::string& text) : Decoding(text, json) {}

  std::string Int(const char* name) { return Get(pps_decoder_get_int, name, -77); }
  std::string String(const char* name) {
    static const char kUntouched[] = "untouched";
    return Get(pps_decoder_get_string, name, kUntouched);
  }
  // Of the next member.
  std::string Name() {
    const char* const name = pps_decoder_name(*this);
    return name == nullptr ? "(null)" : name;
  }
  std::string Push(const char* name) { return ErrorName(pps_decoder_push(*this, name)); }
  std::string Pop() { return ErrorName(pps_decoder_pop(*this)); }
  std::string ClearStatus() { return ErrorName(pps_decoder_status(*this, true)); }

  // The value that `get` delivers.
  template <typename Value>
  std::string Get(pps_decoder_error_t (*get)(pps_decoder_t*, const char*, Value*), const char* name,
                  Value untouched) {
    Value value = untouched;
    const pps_decoder_error_t error = get(*this, name, &value);
    if (error != PPS_DECODER_OK) {
      EXPECT_EQ(value, untouched) << "a failure leaves the variable alone";
      return ErrorName(error);
    }
    std::ostringstream text;
    text << std::setprecision(17) << value;
    return text.str();
  }
};

// A decoder that stands in the first object, or in the JSON value.
class Entered : public Decoder {
 public:
  Entered(bool json, const std::string& text) : Decoder(json, text) {
    EXPECT_EQ(Push(nullptr), "OK");
  }
};

// What a text has, behind the error that it gives. It is read in every other way as well.
std::string Read(bool json, const std::string& text) {
  std::string operations;
  for (int i = 0; i < 255; ++i) operations += static_cast<char>(i);
  fuzz::Run(fuzz::Input("\xFF" + operations + text), json);
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
  for (const std::string& bad : Split("|word|a:n|:n:1|::|@|-|-@|+@|*@|+|*|+a:n:1|*a:n:1|-a:n:1| "
                                      "|[n|[]|[a:n:1|[]:n:1|[x][n]a:n:1|-[n]a")) {
    EXPECT_EQ(Lines("@o\n" + bad + "\nb:n:2\n"),
              "object [@o] - - - -1 -1 0\nerror [@o] - - - -1 -1 0\n"
              "attribute [@o] [b] [n] [2] -1 1 0\n")
        << bad;
  }
}

// --- decoder -------------------------------------------------------------------------------------

TEST(PpsDecoder, AttributesOfEveryEncoding) {
  const std::string text =
      "@o\ns::te\\xt\nempty::\nn:n:-12\nf:n:1.5e2\nzero:n:007\nb:b:true\nb2:b:false\n"
      "c:c:a\\tb\nj:json:[1]\njs:json: \"x\\ny\" \njn:json:5\nu:what:5\n";
  EXPECT_EQ(Read(kPps, text),
            R"(@o={"s":"te\\xt","empty":"","n":-12,"f":150,"zero":7,"b":true,"b2":false,)"
            R"("c":"a\tb","j":[1],"js":"x\ny","jn":5,"u":null})");
  Entered d(kPps, text);
  const std::pair<const char*, pps_node_type_t> kTypes[] = {
      {"s", PPS_TYPE_STRING}, {"n", PPS_TYPE_NUMBER},  {"b", PPS_TYPE_BOOL},
      {"j", PPS_TYPE_ARRAY},  {"u", PPS_TYPE_UNKNOWN}, {"none", PPS_TYPE_NONE}};
  for (const auto& [name, type] : kTypes) EXPECT_EQ(pps_decoder_type(d, name), type) << name;
  EXPECT_EQ(d.ClearStatus(), "OK") << "asking for a type is no failure";
  for (const char* name : {"u", "s", "b", "j"}) EXPECT_EQ(d.Int(name), "BAD_TYPE") << name;
  for (int i = 0; i < 2; ++i) EXPECT_EQ(d.String("c"), "a\tb") << "escapes are resolved once";
}

TEST(PpsDecoder, ValuesThatAreNotWhatTheEncodingSays) {
  for (const std::string& bad : Split("n:|n: 1|n:1 |n:+1|n:1.|n:.5|n:-|n:five|n:1:2|b:|b:TRUE|b:1|"
                                      "b:truefalse|json:{\"a\":")) {
    EXPECT_EQ(Read(kPps, "v:" + bad + "\nw::1\n"), "{\"v\":null,\"w\":\"1\"}") << bad;
    EXPECT_EQ(pps_decoder_type(Entered(kPps, "v:" + bad + "\n"), "v"), PPS_TYPE_UNKNOWN);
  }
}

TEST(PpsDecoder, ObjectsDeletionsAndBrokenLines) {
  const std::string text = "@one\na:n:1\n-a\n+@two\na:n:2\n-@three\n";
  EXPECT_EQ(Read(kPps, text), "@one={\"a\":1},@two={\"a\":2},@three={}");
  Decoder d(kPps, text);
  EXPECT_EQ(pps_decoder_length(d), 3);
  EXPECT_EQ(d.Push("@two"), "OK");
  EXPECT_EQ(d.Int("a"), "2");
  EXPECT_EQ(Read(kPps, "@o\na:n:1\n@o\n"), "@o={\"a\":1},@o={}");
  EXPECT_EQ(Read(kPps, ""), "{}");
  EXPECT_EQ(Read(kPps, "-x\na:n:1"), "{\"a\":1}") << "one object, without a name";
  for (const char* lost : {"|@o\n@o\na:n:1\n", "|@o\na:n:1\n", "[n]@o\n[n]a:n:1\n"}) {
    EXPECT_EQ(Read(kPps, lost), "@o={\"a\":1}") << lost;
  }
  EXPECT_EQ(Read(kPps, "@o\na:n:1\nnonsense\n\nb:n:2\n"), "PARSE_ERROR @o={\"a\":1,\"b\":2}");
  for (const std::string cut : {"b", "b:", "b:n"}) {
    EXPECT_EQ(Read(kPps, "@o\na:n:1\n" + cut), "@o={\"a\":1}");
    EXPECT_EQ(Read(kPps, "@o\na:n:1\n" + cut + "\n"), "PARSE_ERROR @o={\"a\":1}") << "it is whole";
  }
}

TEST(PpsDecoder, CEscapes) {
  const std::pair<std::string, std::string> cases[] = {
      {"\\n\\t\\r\\a\\b\\f\\v\\\\\\\"\\'\\?", "\n\t\r\a\b\f\v\\\"'?"},
      {"\\x41\\x4a1\\x9", "AJ1\t"},
      {"\\101\\60x\\0019", "A0x\0019"},
      {"\\q\\x\\xg\\400\\8\\", "\\q\\x\\xg\\400\\8\\"},
      {"a\\0b", "a"},
  };
  for (const auto& [escaped, value] : cases) {
    Entered d(kPps, "v:c:" + escaped + "\nw::x\n");
    EXPECT_EQ(d.String("v"), value);
    EXPECT_EQ(d.String("w"), "x");
  }
}

TEST(JsonDecoder, MalformedTextsLeaveNothingToRead) {
  // Also a text behind another, an unescaped line end, and a number that no double holds.
  for (const std::string& text : Split("| |{\"a\":1]|{} {}|\"\\u12g4\"|\"a\nb\"|\xef\xbb\xbf{}|"
                                       "1e309|13333333333333333333333333333333333333333380E+308")) {
    SCOPED_TRACE(text);
    EXPECT_EQ(Read(kJson, text), "PARSE_ERROR ");
    Decoder d(kJson, text);
    EXPECT_EQ(pps_decoder_length(d), 0);
    EXPECT_EQ(d.Push(nullptr), "NOT_FOUND");
    EXPECT_EQ(d.Int("a"), "NOT_FOUND");
    EXPECT_EQ(d.Pop(), "POP_AT_ROOT");
    EXPECT_EQ(d.ClearStatus(), "PARSE_ERROR");
  }
}

TEST(JsonDecoder, Numbers) {
  // The text, as int, int64 and double.
  const char kRows[] = R"(2147483647 2147483647 2147483647 2147483647
-2147483649 BAD_TYPE -2147483649 -2147483649
-9223372036854775808 BAD_TYPE -9223372036854775808 -9.2233720368547758e+18
9223372036854775808 BAD_TYPE BAD_TYPE 9.2233720368547758e+18
1.0 BAD_TYPE BAD_TYPE 1
2.2250738585072011e-308 BAD_TYPE BAD_TYPE 2.2250738585072009e-308
1e-400 BAD_TYPE BAD_TYPE 0)";
  for (const std::string& row : Split(kRows, '\n')) {
    const std::string text = Split(row, ' ')[0];
    Entered d(kJson, "{\"v\":" + text + "}");
    EXPECT_EQ(text + " " + d.Int("v") + " " + d.Get(pps_decoder_get_int64, "v", std::int64_t{-77}) +
                  " " + d.Get(pps_decoder_get_double, "v", -77.25),
              row);
  }
}

TEST(JsonDecoder, StringsAndNamesAreUnescapedOnceAndEndAtAZeroByte) {
  Entered d(kJson, R"({"a\u0062c":"\"\\\/\n","u":"\u00e4\ud83d\ude00","nul":"a\u0000b"})");
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(d.String("abc"), "\"\\/\n");
    EXPECT_EQ(d.String("u"), "\xc3\xa4\xf0\x9f\x98\x80");
    EXPECT_EQ(d.String("nul"), "a");
  }
}

TEST(JsonDecoder, WhereItStands) {
  const std::string text = R"({"o":{"i":1},"l":[1,"two",null,[6],8],"i":2,"i":3})";
  EXPECT_EQ(Read(kJson, text), text);
  Decoder d(kJson, text);
  EXPECT_EQ(d.Push("o"), "NOT_FOUND") << "not a level deeper than it stands";
  EXPECT_EQ(pps_decoder_push_array(d, nullptr), PPS_DECODER_BAD_TYPE);
  EXPECT_EQ(d.Push(nullptr), "OK");
  EXPECT_EQ(d.Push("none"), "NOT_FOUND");
  EXPECT_EQ(d.Push("i"), "BAD_TYPE");
  EXPECT_EQ(d.Name(), "o") << "a failure moves nothing";
  EXPECT_EQ(d.Int("i"), "2") << "the first of two";
  EXPECT_EQ(d.Name(), "o") << "nor does a name, which is found from anywhere";
  EXPECT_EQ(d.Push("o"), "OK");
  EXPECT_EQ(d.Int("l"), "NOT_FOUND") << "right name, wrong level";
  EXPECT_EQ(d.Pop(), "OK");
  EXPECT_EQ(d.Name(), "l") << "behind what was left";
  EXPECT_EQ(pps_decoder_push_object(d, "l"), PPS_DECODER_BAD_TYPE);
  EXPECT_EQ(pps_decoder_push_array(d, "l"), PPS_DECODER_OK);
  EXPECT_EQ(pps_decoder_length(d), 5);
  EXPECT_EQ(d.Name(), "(null)");
  EXPECT_EQ(d.Int("l"), "NOT_FOUND");
  EXPECT_EQ(d.String(nullptr), "BAD_TYPE") << "what is not delivered stays the next";
  EXPECT_EQ(d.Int(nullptr), "1");
  EXPECT_EQ(d.String(nullptr), "two");
  EXPECT_EQ(pps_decoder_type(d, nullptr), PPS_TYPE_NULL);
  EXPECT_EQ(pps_decoder_next(d), PPS_DECODER_OK);
  EXPECT_EQ(d.Push(nullptr), "OK");
  EXPECT_EQ(d.Int(nullptr), "6");
  EXPECT_EQ(d.Int(nullptr), "NOT_FOUND") << "the end of the inner array";
  EXPECT_EQ(d.Pop(), "OK");
  EXPECT_EQ(d.Int(nullptr), "8");
  d.ClearStatus();
  EXPECT_EQ(pps_decoder_next(d), PPS_DECODER_NOT_FOUND);
  EXPECT_EQ(d.ClearStatus(), "OK") << "the end of a walk is no failure";
  EXPECT_EQ(d.Pop(), "OK");
  EXPECT_EQ(d.Name(), "i");
  EXPECT_EQ(pps_decoder_type(d, "o"), PPS_TYPE_OBJECT) << "found although it was passed";
  EXPECT_EQ(d.Pop(), "OK");
  EXPECT_EQ(d.Pop(), "POP_AT_ROOT");
}

TEST(Decoder, MisuseReuseAndStatus) {
  pps_decoder_t d;
  ASSERT_EQ(pps_decoder_initialize(&d, nullptr), PPS_DECODER_OK);
  EXPECT_EQ(pps_decoder_length(&d), 0);
  EXPECT_EQ(pps_decoder_push(&d, nullptr), PPS_DECODER_NOT_FOUND) << "nothing was parsed";
  EXPECT_EQ(pps_decoder_parse_json_str(&d, nullptr), PPS_DECODER_PARSE_ERROR);
  EXPECT_EQ(pps_decoder_parse_pps_str(&d, nullptr), PPS_DECODER_PARSE_ERROR);
  EXPECT_EQ(pps_decoder_status(&d, false), PPS_DECODER_NOT_FOUND) << "the first failure";
  EXPECT_EQ(pps_decoder_status(&d, true), PPS_DECODER_NOT_FOUND);
  EXPECT_EQ(pps_decoder_status(&d, true), PPS_DECODER_OK);

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
  EXPECT_EQ(Shown(&d), "{\"a\":5}");
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
    EXPECT_EQ(e.Text(), fuzz::kNoText) << "while it is open";
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
    EXPECT_EQ(pps_encoder_add_bool(e, "later", true), error);
    EXPECT_EQ(pps_encoder_add_string(e, "later", nullptr), error) << "the first failure stays";
    EXPECT_EQ(e.Text(), fuzz::kNoText);
    pps_encoder_end_object(e);
    EXPECT_EQ(e.Text(), fuzz::kNoText);
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
  EXPECT_EQ(json.Text(), "\"" + large + "\"");
}

// --- round trips ---------------------------------------------------------------------------------

TEST(RoundTrip, EveryCharacterInEveryPlace) {
  for (int c = 1; c < 256; ++c) {
    const std::string one(1, static_cast<char>(c));
    for (const std::string& value : {one, "a" + one + "\n\\" + one + "7"}) {
      for (const bool json : {kPps, kJson}) {
        Encoder e(json);
        pps_encoder_start_object(e, nullptr);
        pps_encoder_add_string(e, "top", value.c_str());
        pps_encoder_start_object(e, "j");
        pps_encoder_add_string(e, value.c_str(), value.c_str());
        pps_encoder_end_object(e);
        pps_encoder_end_object(e);
        Entered d(json, e.Text());
        EXPECT_EQ(d.String("top"), value);
        EXPECT_EQ(d.Push("j"), "OK");
        EXPECT_EQ(d.String(value.c_str()), value);
      }
    }
  }
}

}  // namespace
