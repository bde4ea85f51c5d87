// The PPS library: line parser, decoder, encoder, and the three together.
#include <gtest/gtest.h>
#include <pps.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

// A text in a heap block of exactly its size, so that a read behind its end is seen by a sanitizer.
class Text {
 public:
  explicit Text(const std::string& text) : memory_(new char[text.size() + 1]) {
    std::memcpy(memory_.get(), text.c_str(), text.size() + 1);
  }
  char* get() { return memory_.get(); }

 private:
  std::unique_ptr<char[]> memory_;
};

class Decoder {
 public:
  enum Format { kPps, kJson };

  Decoder(Format format, const std::string& text) : text_(text) {
    pps_decoder_initialize(&decoder_, nullptr);
    result = format == kPps ? pps_decoder_parse_pps_str(&decoder_, text_.get())
                            : pps_decoder_parse_json_str(&decoder_, text_.get());
  }
  ~Decoder() { pps_decoder_cleanup(&decoder_); }
  Decoder(const Decoder&) = delete;
  Decoder& operator=(const Decoder&) = delete;

  operator pps_decoder_t*() { return &decoder_; }

  // Getters that show the error or the value as text, and that the variable stays when it must.
  std::string Int(const char* name) {
    int value = -77;
    const pps_decoder_error_t error = pps_decoder_get_int(&decoder_, name, &value);
    return Shown(error, value, -77);
  }
  std::string Int64(const char* name) {
    std::int64_t value = -77;
    const pps_decoder_error_t error = pps_decoder_get_int64(&decoder_, name, &value);
    return Shown(error, value, std::int64_t{-77});
  }
  std::string Double(const char* name) {
    double value = -77.25;
    const pps_decoder_error_t error = pps_decoder_get_double(&decoder_, name, &value);
    if (error != PPS_DECODER_OK) return Shown(error, value, -77.25);
    char shown[64];
    std::snprintf(shown, sizeof(shown), "%.17g", value);
    return shown;
  }
  std::string Bool(const char* name) {
    bool value = true;
    const pps_decoder_error_t error = pps_decoder_get_bool(&decoder_, name, &value);
    if (error != PPS_DECODER_OK) return Shown(error, value, true);
    return value ? "true" : "false";
  }
  std::string String(const char* name) {
    static const char kUntouched[] = "untouched";
    const char* value = kUntouched;
    const pps_decoder_error_t error = pps_decoder_get_string(&decoder_, name, &value);
    if (error == PPS_DECODER_OK) return value;
    EXPECT_EQ(value, kUntouched);
    return Error(error);
  }

  static std::string Error(pps_decoder_error_t error) {
    switch (error) {
      case PPS_DECODER_BAD_TYPE:
        return "BAD_TYPE";
      case PPS_DECODER_NOT_FOUND:
        return "NOT_FOUND";
      default:
        return "error " + std::to_string(error);
    }
  }

  pps_decoder_error_t result;

 private:
  template <typename Value>
  static std::string Shown(pps_decoder_error_t error, Value value, Value untouched) {
    if (error == PPS_DECODER_OK) return std::to_string(value);
    EXPECT_EQ(value, untouched);
    return Error(error);
  }

  Text text_;
  pps_decoder_t decoder_;
};

// The parsed lines, one a row: status, object, name, encoding, value; a dash for null.
std::string Lines(const std::string& text) {
  Text copy(text);
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
}

TEST(PpsParse, LastLineNeedsNoNewlineAndCarriageReturnIsOrdinary) {
  EXPECT_EQ(Lines(""), "0 - - - -");
  EXPECT_EQ(Lines("a::"), "6 - [a] [] []\n0 - - - -");
  EXPECT_EQ(Lines("@o"), "2 [@o] - - -\n0 [@o] - - -");
  EXPECT_EQ(Lines("a::x\\ny\r\n"), "6 - [a] [] [x\\ny\r]\n0 - - - -");
  EXPECT_EQ(Lines("a:strange:v"), "6 - [a] [strange] [v]\n0 - - - -");
}

TEST(PpsParse, OtherLinesAreErrorsAndAreSkipped) {
  for (const char* bad : {"", "word", "a:n", ":n:1", "::", "@", "-", "-@", "+@", "*@", "+", "*",
                          "+a:n:1", "*a:n:1", "-a:n:1", " "}) {
    SCOPED_TRACE(bad);
    EXPECT_EQ(Lines("@o\n" + std::string(bad) + "\nb:n:2\n"),
              "2 [@o] - - -\n1 [@o] - - -\n6 [@o] [b] [n] [2]\n0 [@o] - - -");
  }
  EXPECT_EQ(Lines("\xff\x80:\x01:\xfe"), "6 - [\xff\x80] [\x01] [\xfe]\n0 - - - -");
}

// --- decoder: PPS text ---------------------------------------------------------------------------

TEST(PpsDecoder, AttributesOfEveryEncoding) {
  Decoder d(Decoder::kPps,
            "@o\ns::te\\xt\nempty::\nn:n:-12\nf:n:1.5e2\nzero:n:007\nb:b:true\nb2:b:false\n"
            "c:c:a\\tb\nj:json:[1]\njs:json: \"x\\ny\" \njn:json:5\nu:what:5\n");
  EXPECT_EQ(d.result, PPS_DECODER_OK);
  EXPECT_EQ(pps_decoder_length(d), 1);
  EXPECT_STREQ(pps_decoder_name(d), "@o");
  ASSERT_EQ(pps_decoder_push(d, nullptr), PPS_DECODER_OK);
  EXPECT_EQ(pps_decoder_length(d), 12);
  EXPECT_STREQ(pps_decoder_name(d), "s");
  EXPECT_EQ(d.String("s"), "te\\xt");
  EXPECT_EQ(d.String("empty"), "");
  EXPECT_EQ(d.Int("n"), "-12");
  EXPECT_EQ(d.Double("f"), "150");
  EXPECT_EQ(d.Int("zero"), "7");
  EXPECT_EQ(d.Bool("b"), "true");
  EXPECT_EQ(d.Bool("b2"), "false");
  EXPECT_EQ(d.String("c"), "a\tb");
  EXPECT_EQ(d.String("c"), "a\tb") << "escapes are resolved once";
  EXPECT_EQ(d.String("js"), "x\ny");
  EXPECT_EQ(d.Int("jn"), "5");
  const std::vector<std::pair<const char*, pps_node_type_t>> types = {
      {"s", PPS_TYPE_STRING},  {"n", PPS_TYPE_NUMBER},  {"b", PPS_TYPE_BOOL},
      {"c", PPS_TYPE_STRING},  {"j", PPS_TYPE_ARRAY},   {"js", PPS_TYPE_STRING},
      {"u", PPS_TYPE_UNKNOWN}, {"none", PPS_TYPE_NONE}, {nullptr, PPS_TYPE_STRING}};
  for (const auto& type : types) {
    EXPECT_EQ(pps_decoder_type(d, type.first), type.second) << (type.first ? type.first : "next");
  }
  EXPECT_EQ(pps_decoder_status(d, true), PPS_DECODER_OK) << "asking for a type is no failure";
  for (const char* name : {"u", "s", "b", "j"}) EXPECT_EQ(d.Int(name), "BAD_TYPE") << name;
  for (const char* name : {"n", "b", "u", "j"}) EXPECT_EQ(d.String(name), "BAD_TYPE") << name;
  for (const char* name : {"n", "s", "none"}) EXPECT_NE(d.Bool(name), "true") << name;
}

TEST(PpsDecoder, ValuesThatAreNotWhatTheEncodingSays) {
  for (const char* bad :
       {"", " 1", "1 ", "+1", "0x1", "1.", ".5", "1e", "--1", "-", "five", "1:2"}) {
    SCOPED_TRACE(bad);
    Decoder d(Decoder::kPps, "v:n:" + std::string(bad) + "\nw::1\n");
    ASSERT_EQ(pps_decoder_push(d, nullptr), PPS_DECODER_OK);
    EXPECT_EQ(d.Int("v"), "BAD_TYPE");
    EXPECT_EQ(d.Double("v"), "BAD_TYPE");
    EXPECT_EQ(d.Int("w"), "BAD_TYPE") << "digits in plain text are no number";
  }
  for (const char* bad : {"", "TRUE", "True", "1", "true ", "truefalse"}) {
    Decoder d(Decoder::kPps, "v:b:" + std::string(bad));
    ASSERT_EQ(pps_decoder_push(d, nullptr), PPS_DECODER_OK);
    EXPECT_EQ(d.Bool("v"), "BAD_TYPE") << bad;
  }
}

TEST(PpsDecoder, ObjectLinesAndDeletionsAddNoAttribute) {
  Decoder d(Decoder::kPps, "@one\na:n:1\n-a\n+@two\na:n:2\n-@three\n");
  EXPECT_EQ(d.result, PPS_DECODER_OK);
  EXPECT_EQ(pps_decoder_length(d), 3);
  const char* const names[] = {"@one", "@two", "@three"};
  const std::string values[] = {"1", "2", "NOT_FOUND"};
  for (int i = 0; i < 3; ++i) {
    EXPECT_STREQ(pps_decoder_name(d), names[i]);
    ASSERT_EQ(pps_decoder_push(d, nullptr), PPS_DECODER_OK);
    EXPECT_EQ(d.Int("a"), values[i]);
    EXPECT_EQ(pps_decoder_length(d), i < 2 ? 1 : 0);
    ASSERT_EQ(pps_decoder_pop(d), PPS_DECODER_OK);
  }
  EXPECT_EQ(pps_decoder_push(d, nullptr), PPS_DECODER_NOT_FOUND);
  EXPECT_EQ(pps_decoder_name(d), nullptr);
  EXPECT_EQ(pps_decoder_push(d, "@two"), PPS_DECODER_OK);
  EXPECT_EQ(d.Int("a"), "2");
}

TEST(PpsDecoder, TextWithoutObjectLineIsOneObject) {
  for (const char* text : {"", "a:n:1", "a:n:1\n", "-x\na:n:1"}) {
    SCOPED_TRACE(text);
    Decoder d(Decoder::kPps, text);
    EXPECT_EQ(d.result, PPS_DECODER_OK);
    EXPECT_EQ(pps_decoder_length(d), 1);
    EXPECT_EQ(pps_decoder_name(d), nullptr);
    EXPECT_EQ(pps_decoder_push(d, nullptr), PPS_DECODER_OK);
    EXPECT_EQ(d.Int("a"), *text == '\0' ? "NOT_FOUND" : "1");
    EXPECT_EQ(pps_decoder_pop(d), PPS_DECODER_OK);
    EXPECT_EQ(pps_decoder_pop(d), PPS_DECODER_POP_AT_ROOT);
  }
}

TEST(PpsDecoder, BrokenLinesAreReportedAndTheRestIsRead) {
  Decoder d(Decoder::kPps, "@o\na:n:1\nnonsense\n\nb:n:2\n");
  EXPECT_EQ(d.result, PPS_DECODER_PARSE_ERROR);
  ASSERT_EQ(pps_decoder_push(d, nullptr), PPS_DECODER_OK);
  EXPECT_EQ(d.Int("a") + d.Int("b"), "12");
  EXPECT_EQ(pps_decoder_status(d, true), PPS_DECODER_PARSE_ERROR);
  EXPECT_EQ(pps_decoder_status(d, true), PPS_DECODER_OK);

  for (const char* cut : {"b", "b:", "b:n"}) {
    SCOPED_TRACE(cut);
    Decoder left_out(Decoder::kPps, "@o\na:n:1\n" + std::string(cut));
    EXPECT_EQ(left_out.result, PPS_DECODER_OK);
    ASSERT_EQ(pps_decoder_push(left_out, nullptr), PPS_DECODER_OK);
    EXPECT_EQ(pps_decoder_length(left_out), 1);
    Decoder whole(Decoder::kPps, "@o\na:n:1\n" + std::string(cut) + "\n");
    EXPECT_EQ(whole.result, PPS_DECODER_PARSE_ERROR) << "a whole line is not cut";
  }
}

TEST(PpsDecoder, FirstOfANameIsFound) {
  Decoder d(Decoder::kPps, "@o\na:n:1\nb:n:2\na:n:3\nj:json:{\"x\":1,\"y\":2,\"x\":3}\n");
  ASSERT_EQ(pps_decoder_push(d, nullptr), PPS_DECODER_OK);
  EXPECT_EQ(d.Int("b") + d.Int("a") + d.Int("b") + d.Int("a"), "2121");
  EXPECT_EQ(pps_decoder_length(d), 4);
  ASSERT_EQ(pps_decoder_push(d, "j"), PPS_DECODER_OK);
  EXPECT_EQ(d.Int("y") + d.Int("x") + d.Int("x") + d.Int("y"), "2112");
  ASSERT_EQ(pps_decoder_pop(d), PPS_DECODER_OK);
  // Names that begin alike, and one that is the beginning of another.
  Decoder alike(Decoder::kPps, "version_long:n:1\nversion:n:2\nversio:n:3\nversion_lonG:n:4\n");
  ASSERT_EQ(pps_decoder_push(alike, nullptr), PPS_DECODER_OK);
  EXPECT_EQ(alike.Int("version") + alike.Int("versio") + alike.Int("version_long") +
                alike.Int("version_lonG"),
            "2314");
  for (const char* none : {"versi", "version_", "version_long_", "VERSION", ""}) {
    EXPECT_EQ(alike.Int(none), "NOT_FOUND") << none;
  }
}

TEST(PpsDecoder, JsonAttributesAreCheckedWhenEnteredAndOnlyThen) {
  Decoder d(
      Decoder::kPps,
      "@o\nbad:json:{\"a\":\nmpu:json:{\"version\":\"V\\u0031\",\"model\":\"M\"}\nn:json:7\n");
  EXPECT_EQ(d.result, PPS_DECODER_OK);
  ASSERT_EQ(pps_decoder_push(d, nullptr), PPS_DECODER_OK);
  EXPECT_EQ(pps_decoder_push(d, "bad"), PPS_DECODER_BAD_TYPE);
  EXPECT_EQ(pps_decoder_push(d, "bad"), PPS_DECODER_BAD_TYPE);
  EXPECT_EQ(pps_decoder_type(d, "bad"), PPS_TYPE_UNKNOWN);
  EXPECT_EQ(pps_decoder_push(d, "n"), PPS_DECODER_BAD_TYPE);
  EXPECT_EQ(pps_decoder_push_array(d, "mpu"), PPS_DECODER_BAD_TYPE);
  for (int round = 0; round < 2; ++round) {
    ASSERT_EQ(pps_decoder_push(d, "mpu"), PPS_DECODER_OK);
    EXPECT_EQ(d.String("version"), "V1");
    EXPECT_EQ(d.Int("n"), "NOT_FOUND");
    EXPECT_EQ(d.String("mpu"), "NOT_FOUND");
    EXPECT_EQ(pps_decoder_length(d), 2);
    ASSERT_EQ(pps_decoder_pop(d), PPS_DECODER_OK);
    EXPECT_STREQ(pps_decoder_name(d), "n") << "behind the attribute that was left";
    EXPECT_EQ(d.String("version"), "NOT_FOUND") << "right name, wrong level";
  }
  EXPECT_EQ(pps_decoder_length(d), 3);
  EXPECT_EQ(d.Int(nullptr), "7");
  EXPECT_EQ(pps_decoder_type(d, nullptr), PPS_TYPE_NONE) << "the tape behind belongs to no level";
}

TEST(PpsDecoder, CEscapes) {
  const std::pair<const char*, std::string> cases[] = {
      {"\\n\\t\\r\\a\\b\\f\\v\\\\\\\"\\'\\?", "\n\t\r\a\b\f\v\\\"'?"},
      {"\\x41\\x4a1\\x9", "AJ1\t"},
      {"\\101\\60x\\0019", "A0x\0019"},
      {"\\q\\x\\xg\\400\\8\\", "\\q\\x\\xg\\400\\8\\"},
      {"a\\0b", "a"},
      {"\\377\\xff", "\xff\xff"},
      {"plain", "plain"},
  };
  for (const auto& c : cases) {
    Decoder d(Decoder::kPps, "v:c:" + std::string(c.first) + "\nw::x\n");
    ASSERT_EQ(pps_decoder_push(d, nullptr), PPS_DECODER_OK);
    EXPECT_EQ(d.String("v"), c.second) << c.first;
    EXPECT_EQ(d.String("w"), "x");
  }
}

// --- decoder: JSON text --------------------------------------------------------------------------

TEST(JsonDecoder, WellFormedTexts) {
  for (const char* text : {"{}", "[]", " \t\r\n[ ] \n", "0", "-0", "\"\"", "null", "true", "false",
                           "[[],{},[[]]]", "{\"\":{}}", "{ \"a\" : [ 1 , 2 ] , \"b\" : null }",
                           "1e5", "1E-5", "1.0e+5", "\"\\\"\\\\\\/\\b\\f\\n\\r\\t\\u00e4\"",
                           "\"\x7f\xff\x80\"", "[\"\\ud800\",\"\\udc00x\"]"}) {
    Decoder d(Decoder::kJson, text);
    EXPECT_EQ(d.result, PPS_DECODER_OK) << text;
    EXPECT_EQ(pps_decoder_length(d), 1) << text;
  }
}

TEST(JsonDecoder, MalformedTextsLeaveNothingToRead) {
  for (const char* text : {"",
                           " ",
                           "{",
                           "}",
                           "[",
                           "]",
                           "[1",
                           "[1,",
                           "[1,]",
                           "[,1]",
                           "[1 2]",
                           "[1}",
                           "{\"a\":1]",
                           "{1:2}",
                           "{\"a\"}",
                           "{\"a\":}",
                           "{\"a\":1,}",
                           "{,}",
                           "{\"a\" 1}",
                           "{\"a\":1 \"b\":2}",
                           "{a:1}",
                           "{'a':1}",
                           "nul",
                           "nulll",
                           "True",
                           "tru",
                           "truex",
                           "falsy",
                           "01",
                           "-",
                           "-a",
                           "+1",
                           "1.",
                           ".1",
                           "1.e1",
                           "1e",
                           "1e+",
                           "0x1",
                           "1 1",
                           "{} {}",
                           "[] x",
                           "NaN",
                           "Infinity",
                           "\"",
                           "\"abc",
                           "\"a\nb\"",
                           "\"a\tb\"",
                           "\"\x01\"",
                           "\"\\",
                           "\"\\\"",
                           "\"\\x41\"",
                           "\"\\u12\"",
                           "\"\\u12g4\"",
                           "\"\\u\"",
                           "\"\\a\"",
                           "\"\\ud800\\u12\"",
                           "\xef\xbb\xbf{}",
                           "[1]\v",
                           "/**/1",
                           "\"a\" \"b\"",
                           "{\"a\":1}}",
                           "[[1]",
                           "\"a long text behind which a bad escape stands \\z\"",
                           "[-]",
                           "[1-2]",
                           "-01",
                           "[00]"}) {
    SCOPED_TRACE(text);
    Decoder d(Decoder::kJson, text);
    EXPECT_EQ(d.result, PPS_DECODER_PARSE_ERROR);
    EXPECT_EQ(pps_decoder_status(d, true), PPS_DECODER_PARSE_ERROR);
    EXPECT_EQ(pps_decoder_length(d), 0);
    EXPECT_EQ(pps_decoder_push(d, nullptr), PPS_DECODER_NOT_FOUND);
    EXPECT_EQ(d.Int("a"), "NOT_FOUND");
    EXPECT_EQ(d.Int(nullptr), "NOT_FOUND");
  }
}

TEST(JsonDecoder, Integers) {
  const struct {
    const char* text;
    std::string as_int, as_int64, as_double;
  } cases[] = {
      {"0", "0", "0", "0"},
      {"-0", "0", "0", "-0"},
      {"2147483647", "2147483647", "2147483647", "2147483647"},
      {"-2147483648", "-2147483648", "-2147483648", "-2147483648"},
      {"2147483648", "BAD_TYPE", "2147483648", "2147483648"},
      {"-2147483649", "BAD_TYPE", "-2147483649", "-2147483649"},
      {"4294967297", "BAD_TYPE", "4294967297", "4294967297"},
      {"9223372036854775807", "BAD_TYPE", "9223372036854775807", "9.2233720368547758e+18"},
      {"9223372036854775808", "BAD_TYPE", "BAD_TYPE", "9.2233720368547758e+18"},
      {"-9223372036854775808", "BAD_TYPE", "-9223372036854775808", "-9.2233720368547758e+18"},
      {"-9223372036854775809", "BAD_TYPE", "BAD_TYPE", "-9.2233720368547758e+18"},
      {"18446744073709551617", "BAD_TYPE", "BAD_TYPE", "1.8446744073709552e+19"},
      {"100000000000000000000000", "BAD_TYPE", "BAD_TYPE", "9.9999999999999992e+22"},
      {"1.0", "BAD_TYPE", "BAD_TYPE", "1"},
      {"1e2", "BAD_TYPE", "BAD_TYPE", "100"},
      {"1E0", "BAD_TYPE", "BAD_TYPE", "1"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    Decoder d(Decoder::kJson, "{\"v\":" + std::string(c.text) + "}");
    ASSERT_EQ(pps_decoder_push(d, nullptr), PPS_DECODER_OK);
    EXPECT_EQ(d.Int("v"), c.as_int);
    EXPECT_EQ(d.Int64("v"), c.as_int64);
    EXPECT_EQ(d.Double("v"), c.as_double);
    EXPECT_EQ(pps_decoder_type(d, "v"), PPS_TYPE_NUMBER);
  }
}

TEST(JsonDecoder, DoublesAreTheNearestOnes) {
  const std::string zeros(400, '0');
  const std::vector<std::string> texts = {"0.1",
                                          "-0.0",
                                          "39.908722",
                                          "116.397499",
                                          "3.141592653589793",
                                          "9007199254740993",
                                          "9007199254740992.5",
                                          "1.7976931348623157e308",
                                          "2.2250738585072014e-308",
                                          "5e-324",
                                          "123456789012345678901234567890",
                                          "0.000001",
                                          "1e22",
                                          "1e23",
                                          "1e-22",
                                          "1e-23",
                                          "8.5e22",
                                          "0.30000000000000004",
                                          "7.2057594037927933e16",
                                          "1" + zeros + "e-400",
                                          "0." + zeros + "1e401",
                                          "0." + zeros + "12345678901234567890123e401",
                                          "1.00000000000000000000000000000000000000001",
                                          "0e999999999999999999999",
                                          "-0.1e1"};
  for (const std::string& text : texts) {
    Decoder d(Decoder::kJson, text);
    double value = 77;
    ASSERT_EQ(pps_decoder_get_double(d, nullptr, &value), PPS_DECODER_OK) << text;
    EXPECT_EQ(value, std::strtod(text.c_str(), nullptr)) << text;
    EXPECT_EQ(std::signbit(value), text[0] == '-') << text;
  }
  for (const std::string& text :
       {std::string("1e309"), std::string("-1e400"), "1" + zeros, "1" + zeros + ".5",
        "0." + zeros + "1e1000", std::string("1e99999999999999999999")}) {
    Decoder d(Decoder::kJson, text);
    EXPECT_EQ(d.Double(nullptr), "BAD_TYPE") << text;
    EXPECT_EQ(d.Int64(nullptr), "BAD_TYPE") << text;
  }
  for (const std::string& text :
       {std::string("1e-400"), std::string("1e-99999999999999999999"), "0." + zeros + "1",
        "0." + zeros + "1234567890123456789012345", "1" + zeros + "e-900"}) {
    Decoder d(Decoder::kJson, text);
    EXPECT_EQ(d.Double(nullptr), "0") << text;
  }
}

TEST(JsonDecoder, RandomDoublesComeBack) {
  std::mt19937_64 random(7);
  for (int i = 0; i < 20000; ++i) {
    const std::uint64_t bits = random();
    double value;
    std::memcpy(&value, &bits, sizeof(value));
    if (!std::isfinite(value)) continue;
    char text[40];
    std::snprintf(text, sizeof(text), i % 2 == 0 ? "%.17g" : "%.25e", value);
    Decoder d(Decoder::kJson, text);
    double read = 77;
    ASSERT_EQ(pps_decoder_get_double(d, nullptr, &read), PPS_DECODER_OK) << text;
    ASSERT_EQ(read, value) << text;
  }
}

TEST(JsonDecoder, StringsAndNamesAreUnescapedInPlace) {
  Decoder d(
      Decoder::kJson,
      "{\"a\\u0062c\":\"\\\"\\\\\\/\\b\\f\\n\\r\\t\",\"u\":\"\\u0041\\u00e4\\u20ac\\ud83d\\ude00\","
      "\"lone\":\"x\\ud83dy\\ude00\\ud83d\\u0041\",\"nul\":\"a\\u0000b\",\"last\":\"\xe2\x82\xac\","
      "\"a rather long name\\twith a tab\":\"before the escape \\n and a long way behind it\"}");
  ASSERT_EQ(pps_decoder_push(d, nullptr), PPS_DECODER_OK);
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(d.String("abc"), "\"\\/\b\f\n\r\t");
    EXPECT_EQ(d.String("u"), "A\xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80");
    EXPECT_EQ(d.String("lone"),
              "x\xef\xbf\xbdy\xef\xbf\xbd\xef\xbf\xbd"
              "A");
    EXPECT_EQ(d.String("nul"), "a");
    EXPECT_EQ(d.String("last"), "\xe2\x82\xac");
    EXPECT_EQ(d.String("a rather long name\twith a tab"),
              "before the escape \n and a long way behind it");
  }
  EXPECT_EQ(d.String("a\\u0062c"), "NOT_FOUND");
}

TEST(JsonDecoder, StringsOfEveryLengthAroundTheWord) {
  for (std::size_t length = 0; length < 40; ++length) {
    for (std::size_t special = 0; special <= length; ++special) {
      std::string value(length, 'x');
      std::string text = value;
      if (special < length) {
        value[special] = '\n';
        text.replace(special, 1, "\\n");
      }
      Decoder d(Decoder::kJson, "\"" + text + "\"");
      ASSERT_EQ(d.String(nullptr), value);
      if (special == length) continue;
      text = value;  // the bare control character
      Decoder bad(Decoder::kJson, "\"" + text + "\"");
      ASSERT_EQ(bad.result, PPS_DECODER_PARSE_ERROR) << length << " " << special;
    }
  }
}

TEST(JsonDecoder, ArraysAreReadElementByElement) {
  Decoder d(Decoder::kJson, "{\"l\":[1,\"two\",3.5,true,null,[6],{\"seven\":7},8],\"behind\":9}");
  ASSERT_EQ(pps_decoder_push(d, nullptr), PPS_DECODER_OK);
  EXPECT_EQ(pps_decoder_push_array(d, "behind"), PPS_DECODER_BAD_TYPE);
  ASSERT_EQ(pps_decoder_push_array(d, "l"), PPS_DECODER_OK);
  EXPECT_EQ(pps_decoder_length(d), 8);
  EXPECT_EQ(pps_decoder_name(d), nullptr);
  EXPECT_EQ(d.Int("l"), "NOT_FOUND");
  EXPECT_EQ(d.String(nullptr), "BAD_TYPE") << "what is not delivered stays the next";
  EXPECT_EQ(d.Int(nullptr), "1");
  EXPECT_EQ(d.Int(nullptr), "BAD_TYPE");
  EXPECT_EQ(pps_decoder_push(d, nullptr), PPS_DECODER_BAD_TYPE);
  EXPECT_EQ(d.String(nullptr), "two");
  EXPECT_EQ(d.Int(nullptr), "BAD_TYPE");
  EXPECT_EQ(d.Double(nullptr), "3.5");
  EXPECT_EQ(d.Bool(nullptr), "true");
  EXPECT_EQ(pps_decoder_type(d, nullptr), PPS_TYPE_NULL);
  EXPECT_EQ(d.String(nullptr), "BAD_TYPE");
  EXPECT_EQ(pps_decoder_next(d), PPS_DECODER_OK);
  ASSERT_EQ(pps_decoder_push(d, nullptr), PPS_DECODER_OK);
  EXPECT_EQ(d.Int(nullptr), "6");
  EXPECT_EQ(d.Int(nullptr), "NOT_FOUND") << "the end of the inner array";
  ASSERT_EQ(pps_decoder_pop(d), PPS_DECODER_OK);
  EXPECT_EQ(pps_decoder_push_array(d, nullptr), PPS_DECODER_BAD_TYPE);
  ASSERT_EQ(pps_decoder_push(d, nullptr), PPS_DECODER_OK);
  EXPECT_EQ(d.Int("seven"), "7");
  ASSERT_EQ(pps_decoder_pop(d), PPS_DECODER_OK);
  EXPECT_EQ(d.Int(nullptr), "8");
  EXPECT_EQ(d.Int(nullptr), "NOT_FOUND");
  pps_decoder_status(d, true);
  EXPECT_EQ(pps_decoder_next(d), PPS_DECODER_NOT_FOUND);
  EXPECT_EQ(pps_decoder_status(d, false), PPS_DECODER_OK) << "the end of a walk is no failure";
  ASSERT_EQ(pps_decoder_pop(d), PPS_DECODER_OK);
  EXPECT_STREQ(pps_decoder_name(d), "behind");
  EXPECT_EQ(d.Int("behind"), "9");
}

TEST(JsonDecoder, MembersAreWalkedByNext) {
  Decoder d(Decoder::kJson, "{\"a\":{\"x\":1},\"b\":2,\"c\":[3]}");
  EXPECT_EQ(pps_decoder_type(d, nullptr), PPS_TYPE_OBJECT);
  EXPECT_EQ(pps_decoder_name(d), nullptr);
  ASSERT_EQ(pps_decoder_push(d, nullptr), PPS_DECODER_OK);
  std::string names;
  do {
    names += pps_decoder_name(d);
  } while (pps_decoder_next(d) == PPS_DECODER_OK && pps_decoder_name(d) != nullptr);
  EXPECT_EQ(names, "abc");
  ASSERT_EQ(pps_decoder_push(d, "a"), PPS_DECODER_OK);
  ASSERT_EQ(pps_decoder_pop(d), PPS_DECODER_OK);
  EXPECT_STREQ(pps_decoder_name(d), "b");
  EXPECT_EQ(d.Int(nullptr), "2");
  EXPECT_STREQ(pps_decoder_name(d), "c");
  EXPECT_EQ(d.Int("b"), "2") << "a name is found from anywhere";
  EXPECT_STREQ(pps_decoder_name(d), "c");
}

TEST(JsonDecoder, FailedPushLeavesThePosition) {
  Decoder d(Decoder::kJson, "{\"o\":{\"i\":1},\"s\":\"x\",\"i\":2}");
  EXPECT_EQ(pps_decoder_push(d, "o"), PPS_DECODER_NOT_FOUND) << "not a level deeper than it stands";
  EXPECT_EQ(pps_decoder_push_array(d, nullptr), PPS_DECODER_BAD_TYPE);
  ASSERT_EQ(pps_decoder_push(d, nullptr), PPS_DECODER_OK);
  for (const char* name : {"s", "i", "none"}) {
    EXPECT_NE(pps_decoder_push(d, name), PPS_DECODER_OK) << name;
    EXPECT_STREQ(pps_decoder_name(d), "o");
    EXPECT_EQ(d.Int("i"), "2");
  }
  ASSERT_EQ(pps_decoder_pop(d), PPS_DECODER_OK);
  EXPECT_EQ(pps_decoder_pop(d), PPS_DECODER_POP_AT_ROOT);
  EXPECT_EQ(pps_decoder_pop(d), PPS_DECODER_POP_AT_ROOT);
}

TEST(JsonDecoder, StatusKeepsTheFirstFailure) {
  Decoder d(Decoder::kJson, "{\"s\":\"x\"}");
  ASSERT_EQ(pps_decoder_push(d, nullptr), PPS_DECODER_OK);
  d.Int("none");
  d.Int("s");
  EXPECT_EQ(d.String("s"), "x");
  EXPECT_EQ(pps_decoder_status(d, false), PPS_DECODER_NOT_FOUND);
  EXPECT_EQ(pps_decoder_status(d, true), PPS_DECODER_NOT_FOUND);
  EXPECT_EQ(pps_decoder_status(d, false), PPS_DECODER_OK);
  d.Int("s");
  EXPECT_EQ(pps_decoder_status(d, true), PPS_DECODER_BAD_TYPE);
}

TEST(Decoder, MisuseAndReuse) {
  pps_decoder_t d;
  ASSERT_EQ(pps_decoder_initialize(&d, nullptr), PPS_DECODER_OK);
  EXPECT_EQ(pps_decoder_length(&d), 0);
  EXPECT_EQ(pps_decoder_push(&d, nullptr), PPS_DECODER_NOT_FOUND) << "nothing was parsed";
  EXPECT_EQ(pps_decoder_parse_json_str(&d, nullptr), PPS_DECODER_PARSE_ERROR);
  EXPECT_EQ(pps_decoder_parse_pps_str(&d, nullptr), PPS_DECODER_PARSE_ERROR);
  EXPECT_EQ(pps_decoder_status(&d, true), PPS_DECODER_NOT_FOUND);

  Text json("{\"a\":[[1]]}"), pps("@o\na::text\n"), bad("{");
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

  Text direct("a:n:5\nx\n");
  EXPECT_EQ(pps_decoder_initialize(&d, direct.get()), PPS_DECODER_PARSE_ERROR);
  ASSERT_EQ(pps_decoder_push(&d, nullptr), PPS_DECODER_OK);
  int number = 0;
  EXPECT_EQ(pps_decoder_get_int(&d, "a", &number), PPS_DECODER_OK);
  EXPECT_EQ(number, 5);
  pps_decoder_cleanup(&d);
}

// --- decoder: hostile texts ----------------------------------------------------------------------

// Visits everything that can be reached, with every getter at every place. Returns the values
// visited.
int Walk(pps_decoder_t* d, int limit) {
  int visited = 0, depth = 0;
  for (int step = 0; step < limit; ++step) {
    int i;
    std::int64_t i64;
    double f;
    bool b;
    const char* s = nullptr;
    const pps_node_type_t type = pps_decoder_type(d, nullptr);
    if (type == PPS_TYPE_NONE) {
      if (pps_decoder_pop(d) != PPS_DECODER_OK) break;
      --depth;
      continue;
    }
    ++visited;
    std::string name;
    if (const char* found = pps_decoder_name(d)) name = found;
    pps_decoder_get_int(d, name.c_str(), &i);
    pps_decoder_get_double(d, name.c_str(), &f);
    pps_decoder_get_bool(d, name.c_str(), &b);
    pps_decoder_get_int64(d, name.c_str(), &i64);
    if (pps_decoder_get_string(d, name.c_str(), &s) == PPS_DECODER_OK)
      visited += std::strlen(s) > 99;
    if (pps_decoder_push(d, nullptr) == PPS_DECODER_OK) {
      ++depth;
      continue;
    }
    const bool delivered = pps_decoder_get_int(d, nullptr, &i) == PPS_DECODER_OK ||
                           pps_decoder_get_int64(d, nullptr, &i64) == PPS_DECODER_OK ||
                           pps_decoder_get_double(d, nullptr, &f) == PPS_DECODER_OK ||
                           pps_decoder_get_bool(d, nullptr, &b) == PPS_DECODER_OK ||
                           pps_decoder_get_string(d, nullptr, &s) == PPS_DECODER_OK;
    EXPECT_TRUE(delivered || pps_decoder_next(d) == PPS_DECODER_OK);
  }
  EXPECT_LE(depth, 0);
  return visited;
}

const char kJsonSample[] =
    "{\"latitude\":39.908722,\"neg\":-1.5e-3,\"n\":[1,22,333,4444,55555],\"t\":true,\"f\":false,"
    "\"z\":null,\"s\":\"esc \\\"\\\\\\u00e4\\ud83d\\ude00 "
    "end\",\"o\":{\"i\":{\"j\":[[],{}]}},\"e\":\"\"}";
const char kPpsSample[] =
    "@sample\nplain::text\nnumber:n:-12.5e1\nflag:b:true\nc:c:a\\n\\x41\\101\\\\b\n-gone\n"
    "+@second\nj:json:{\"version\":\"1.2\",\"list\":[1,{\"a\":\"\\u0041\"}]}\nodd:what:x\n";

TEST(HostileText, EveryTruncation) {
  const std::string json = kJsonSample;
  for (std::size_t length = 0; length <= json.size(); ++length) {
    Decoder d(Decoder::kJson, json.substr(0, length));
    EXPECT_EQ(d.result == PPS_DECODER_OK, length == json.size()) << length;
    Walk(d, 1000);
  }
  const std::string pps = kPpsSample;
  for (std::size_t length = 0; length <= pps.size(); ++length) {
    Decoder d(Decoder::kPps, pps.substr(0, length));
    EXPECT_EQ(d.result, PPS_DECODER_OK) << "cut at " << length;
    Walk(d, 1000);
    Lines(pps.substr(0, length));
  }
}

TEST(HostileText, RandomMutations) {
  std::mt19937 random(42);
  const std::string interesting = "{}[]\",:\\\n-+.eEu0919tfn@* \t\x7f\x80\xff\x01";
  for (int round = 0; round < 40000; ++round) {
    const bool json = round % 2 == 0;
    std::string text = json ? kJsonSample : kPpsSample;
    for (unsigned count = 1 + random() % 4; count > 0; --count) {
      const std::size_t at = random() % text.size();
      const char byte = random() % 3 == 0 ? static_cast<char>(1 + random() % 255)
                                          : interesting[random() % interesting.size()];
      switch (random() % 3) {
        case 0:
          text[at] = byte;
          break;
        case 1:
          text.insert(at, 1, byte);
          break;
        default:
          text.erase(at, 1 + random() % 3);
      }
    }
    Decoder d(json ? Decoder::kJson : Decoder::kPps, text);
    Walk(d, 1000);
    if (!json) Lines(text);
  }
}

TEST(HostileText, AMillionLevels) {
  const int kLevels = 1000000;
  const std::string open(kLevels, '['), close(kLevels, ']');
  {
    Decoder d(Decoder::kJson, open + close);
    ASSERT_EQ(d.result, PPS_DECODER_OK);
    int depth = 0;
    while (pps_decoder_push(d, nullptr) == PPS_DECODER_OK) ++depth;
    EXPECT_EQ(depth, kLevels);
    while (pps_decoder_pop(d) == PPS_DECODER_OK) --depth;
    EXPECT_EQ(depth, 0);
  }
  for (const std::string& text : {open, open + std::string(kLevels - 1, ']'), open + close + "]",
                                  open + std::string(kLevels, '}')}) {
    EXPECT_EQ(Decoder(Decoder::kJson, text).result, PPS_DECODER_PARSE_ERROR);
  }
  std::string objects;
  for (int i = 0; i < kLevels; ++i) objects += "{\"a\":";
  EXPECT_EQ(Decoder(Decoder::kJson, objects).result, PPS_DECODER_PARSE_ERROR);
  EXPECT_EQ(Decoder(Decoder::kJson, objects + "0" + std::string(kLevels, '}')).result,
            PPS_DECODER_OK);
  Decoder attribute(Decoder::kPps, "a:json:" + open + "\nb:json:" + open + close + "\n");
  ASSERT_EQ(pps_decoder_push(attribute, nullptr), PPS_DECODER_OK);
  EXPECT_EQ(pps_decoder_push(attribute, "a"), PPS_DECODER_BAD_TYPE);
  EXPECT_EQ(pps_decoder_push(attribute, "b"), PPS_DECODER_OK);
}

TEST(HostileText, MalformedTextLeavesNothingHoweverLongItIs) {
  for (const int elements : {1, 150, 200, 400, 5000}) {
    std::string text = "[";
    for (int i = 0; i < elements; ++i) text += "1,";
    Decoder d(Decoder::kJson, text + "x]");
    EXPECT_EQ(d.result, PPS_DECODER_PARSE_ERROR) << elements;
    EXPECT_EQ(pps_decoder_length(d), 0) << elements;
    EXPECT_EQ(pps_decoder_push(d, nullptr), PPS_DECODER_NOT_FOUND) << elements;
    EXPECT_EQ(pps_decoder_pop(d), PPS_DECODER_POP_AT_ROOT) << elements;
  }
}

TEST(HostileText, TenMegabytesCostTimeThatGrowsWithTheText) {
  const std::size_t kSize = 10 * 1000 * 1000 / KORVANDIS_PATIENCE;
  const auto repeated = [](const std::string& part) {
    std::string text;
    text.reserve(kSize + part.size());
    while (text.size() < kSize) text += part;
    return text;
  };
  const std::string texts[] = {
      "[" + repeated("1,") + "1]",
      "\"" + repeated("\\n") + "\"",
      "\"" + repeated("\\ud800") + "\"",
      "\"" + repeated("x") + "\"",
      repeated("9"),
      "0." + repeated("0") + "1",
      "1e" + repeated("9"),
      repeated(" "),
      "[" + repeated("[],") + "[]]",
      "{" + repeated("\"a\":1,") + "\"a\":1}",
      "[" + repeated("1e-320,") + "0]",
      repeated("\\"),
  };
  const auto start = std::chrono::steady_clock::now();
  for (const std::string& text : texts) {
    Decoder d(Decoder::kJson, text);
    Decoder attribute(Decoder::kPps, "a:json:" + text + "\nb:c:" + text + "\nc:n:" + text + "\n");
    pps_decoder_push(attribute, nullptr);
    pps_decoder_type(attribute, "a");
    pps_decoder_type(attribute, "b");
    double value;
    pps_decoder_get_double(attribute, "c", &value);
    pps_decoder_get_double(d, nullptr, &value);
  }
  for (const char* part : {"a::b\n", "\n", "x\n", "@o\n", "-a\n", ":", "a:json:{}\n", "\r"}) {
    Decoder d(Decoder::kPps, repeated(part));
    pps_decoder_push(d, nullptr);
    EXPECT_EQ(d.Int("none"), "NOT_FOUND");
    const std::string lines = repeated(part);
    Text copy(lines);
    char* p = copy.get();
    pps_attrib_t record = {};
    while (ppsparse(&p, &record) != PPS_END) continue;
  }
  const auto taken = std::chrono::steady_clock::now() - start;
  // About 0.6 s here; quadratic work on any of these texts takes hours.
  EXPECT_LT(std::chrono::duration_cast<std::chrono::seconds>(taken).count(), 60);
}

// --- decoder: objects that are like the one before -----------------------------------------------

// All that can be read of the object at the position of `d`, in the order of `names`.
std::string Shown(Decoder* d, const std::vector<std::string>& names) {
  std::string shown = std::to_string(pps_decoder_length(*d));
  for (const std::string& name : names) {
    const char* const n = name.c_str();
    shown += " " + name + "=" + std::to_string(pps_decoder_type(*d, n)) + d->Int(n) + "," +
             d->Int64(n) + "," + d->Double(n) + "," + d->Bool(n) + "," + d->String(n);
    if (pps_decoder_push(*d, n) == PPS_DECODER_OK) {
      shown += "[" + d->Int("x") + d->Int(nullptr) + "]";
      pps_decoder_pop(*d);
    }
  }
  shown += ":";
  while (pps_decoder_type(*d, nullptr) != PPS_TYPE_NONE) {
    if (const char* name = pps_decoder_name(*d)) shown += std::string(name) + ";";
    pps_decoder_next(*d);
  }
  return shown;
}

// An object of a few members that are mostly those of the ones before, in text that is sometimes
// broken.
std::string RandomObject(std::mt19937* random) {
  static const char* const kNames[] = {
      "id", "cno",      "used", "azimuth", "elevation", "a_name_of_sixteen", "sixteen_letters_",
      "id", "i\\u0064", ""};
  static const char* const kValues[] = {"1",
                                        "12",
                                        "123",
                                        "1234",
                                        "0",
                                        "0.5",
                                        "12.25",
                                        "123.456",
                                        "1.2345",
                                        "1234.5",
                                        "-7",
                                        "1e2",
                                        "1.5e1",
                                        "true",
                                        "false",
                                        "null",
                                        "\"\"",
                                        "\"text\"",
                                        "\"a,\\\"}\"",
                                        "[]",
                                        "{}",
                                        "[5,6]",
                                        "{\"x\":8}",
                                        "00",
                                        "01",
                                        "1.",
                                        ".5",
                                        "1.e1",
                                        "truf",
                                        "falsy",
                                        "tru",
                                        "-",
                                        "1a",
                                        "0x1",
                                        "2147483647",
                                        "2147483648",
                                        "9223372036854775808",
                                        "12.5E"};
  const auto below = [random](std::size_t limit) { return (*random)() % limit; };
  const bool spaced = below(12) == 0;
  std::string text = spaced ? "{ " : "{";
  std::size_t count = below(10) == 0 ? below(24) : 5;
  for (std::size_t i = 0; i < count; ++i) {
    const std::size_t name = below(12) == 0 ? below(10) : i % 5;
    const std::size_t value = below(40) == 0 ? below(38) : below(23);
    text += std::string(i == 0   ? ""
                        : spaced ? " , "
                                 : ",") +
            "\"" + kNames[name] + (spaced ? "\" : " : "\":") + kValues[value];
  }
  return text + (below(60) == 0 ? "]" : "}");
}

TEST(JsonDecoder, ElementsReadLikeTheSameTextsAlone) {
  std::mt19937 random(11);
  std::vector<std::string> names = {
      "id", "cno", "used",      "azimuth", "elevation", "a_name_of_sixteen", "sixteen_letters_",
      "",   "x",   "elevatioN", "none"};
  int well = 0;
  for (int round = 0; round < 6000 / KORVANDIS_PATIENCE; ++round) {
    std::shuffle(names.begin(), names.end(), random);
    std::vector<std::string> elements(1 + random() % 6);
    for (std::string& element : elements) element = RandomObject(&random);
    std::string text = "{\"list\":[", expected;
    bool all_well = true;
    for (const std::string& element : elements) {
      text += (expected.empty() ? "" : ",") + element;
      Decoder alone(Decoder::kJson, element);
      if (alone.result != PPS_DECODER_OK) all_well = false;
      pps_decoder_push(alone, nullptr);
      expected += Shown(&alone, names) + "\n";
    }
    Decoder list(Decoder::kJson, text + "],\"behind\":7}");
    SCOPED_TRACE(text);
    ASSERT_EQ(list.result == PPS_DECODER_OK, all_well);
    if (!all_well) continue;
    ++well;
    ASSERT_EQ(pps_decoder_push(list, nullptr), PPS_DECODER_OK);
    ASSERT_EQ(pps_decoder_push_array(list, "list"), PPS_DECODER_OK);
    ASSERT_EQ(pps_decoder_length(list), static_cast<int>(elements.size()));
    std::string read;
    while (pps_decoder_push(list, nullptr) == PPS_DECODER_OK) {
      read += Shown(&list, names) + "\n";
      pps_decoder_pop(list);
    }
    ASSERT_EQ(read, expected);
    ASSERT_EQ(pps_decoder_pop(list), PPS_DECODER_OK);
    ASSERT_EQ(list.Int("behind"), "7");
  }
  EXPECT_GT(well, 1000 / KORVANDIS_PATIENCE);
}

TEST(JsonDecoder, WhatIsLikelyIsCheckedAllTheSame) {
  // Behind the last member there is another object's.
  Decoder d(Decoder::kJson, "{\"o\":{\"x\":1},\"y\":2,\"p\":{\"x\":3},\"z\":4}");
  ASSERT_EQ(pps_decoder_push(d, nullptr), PPS_DECODER_OK);
  ASSERT_EQ(pps_decoder_push(d, "o"), PPS_DECODER_OK);
  EXPECT_EQ(d.Int("x") + d.Int("y"), "1NOT_FOUND");
  ASSERT_EQ(pps_decoder_pop(d), PPS_DECODER_OK);
  EXPECT_EQ(d.Int("y"), "2");
  ASSERT_EQ(pps_decoder_push(d, "p"), PPS_DECODER_OK);
  EXPECT_EQ(d.Int("z") + d.Int("x"), "NOT_FOUND3");
  // Elements that begin like the one before: a name that comes twice, and names with like
  // beginnings.
  Decoder list(Decoder::kJson,
               "[{\"elevation\":1,\"b\":2},{\"elevation\":3,\"b\":4},{\"elevation\":5,\"b\":6,"
               "\"elevation\":7},"
               "{\"elevation\":8,\"b\":9},{\"elevatioN\":10,\"b\":11},{\"elevation\":12}]");
  ASSERT_EQ(pps_decoder_push(list, nullptr), PPS_DECODER_OK);
  std::string read;
  while (pps_decoder_push(list, nullptr) == PPS_DECODER_OK) {
    read += list.Int("elevation") + list.Int("b") + list.Int("elevation") + " ";
    pps_decoder_pop(list);
  }
  EXPECT_EQ(read, "121 343 565 898 NOT_FOUND11NOT_FOUND 12NOT_FOUND12 ");
}

TEST(JsonDecoder, AlikeElementsOverEveryGrowth) {
  for (int elements = 1; elements < 500; elements += elements < 70 ? 1 : 37) {
    for (int before = 0; before < 6; ++before) {  // moves where the nodes run out
      std::string text = "[";
      for (int i = 0; i < before; ++i) text += "0,";
      for (int i = 0; i < elements; ++i) {
        const std::string n = std::to_string(i);
        text += (i == 0 ? "{\"a\":" : ",{\"a\":") + n + ",\"b\":true,\"c\":" + n + ".5,\"d\":\"" +
                n + "\"}";
      }
      Decoder d(Decoder::kJson, text + "]");
      ASSERT_EQ(pps_decoder_push(d, nullptr), PPS_DECODER_OK);
      ASSERT_EQ(pps_decoder_length(d), before + elements);
      for (int i = 0; i < before; ++i) ASSERT_EQ(pps_decoder_next(d), PPS_DECODER_OK);
      for (int i = 0; i < elements; ++i) {
        const std::string n = std::to_string(i);
        ASSERT_EQ(pps_decoder_push(d, nullptr), PPS_DECODER_OK);
        ASSERT_EQ(d.Int("a") + d.Bool("b") + d.Double("c") + d.String("d"),
                  n + "true" + n + ".5" + n);
        ASSERT_EQ(pps_decoder_length(d), 4);
        ASSERT_EQ(pps_decoder_pop(d), PPS_DECODER_OK);
      }
      ASSERT_EQ(pps_decoder_push(d, nullptr), PPS_DECODER_NOT_FOUND);
    }
  }
}

TEST(JsonDecoder, AlikeElementsCutAnywhereAreMalformed) {
  const std::string text =
      "[{\"id\":1,\"on\":true,\"f\":0.25},{\"id\":22,\"on\":false,\"f\":12},{\"id\":333,\"on\":"
      "true,\"f\":3.125},"
      "{\"id\":4,\"on\":false,\"f\":1}]";
  for (std::size_t length = 0; length <= text.size(); ++length) {
    Decoder d(Decoder::kJson, text.substr(0, length));
    EXPECT_EQ(d.result == PPS_DECODER_OK, length == text.size()) << length;
    std::string bent = text;
    for (const char byte : {'"', '0', 'e', '.', ',', '}', '{', ' '}) {
      if (length == text.size()) break;
      bent[length] = byte;
      Decoder changed(Decoder::kJson, bent);
      Walk(changed, 1000);
    }
  }
}

TEST(Decoder, NamesOfEveryLength) {
  for (std::size_t length = 0; length < 300; length += length < 24 ? 1 : 23) {
    const std::string name(length, 'n'), other = length == 0 ? "" : name.substr(1) + "m";
    const std::string json = "{\"" + name + "\":1,\"" + name + "n\":2,\"" + other + "o\":3}";
    for (const std::string& text : {json, "[" + json + "," + json + "]"}) {
      Decoder d(Decoder::kJson, text);
      ASSERT_EQ(pps_decoder_push(d, nullptr), PPS_DECODER_OK);
      if (text[0] == '[') {
        ASSERT_EQ(pps_decoder_next(d), PPS_DECODER_OK);
        ASSERT_EQ(pps_decoder_push(d, nullptr), PPS_DECODER_OK);
      }
      EXPECT_EQ(d.Int(name.c_str()) + d.Int((name + "n").c_str()) + d.Int((other + "o").c_str()),
                "123");
      EXPECT_EQ(d.Int((other + "o").c_str()) + d.Int(name.c_str()), "31");
      EXPECT_EQ(d.Int(other.c_str()), length == 0 ? "1" : "NOT_FOUND") << length;
      EXPECT_EQ(pps_decoder_name(d), name);
    }
    if (length == 0) continue;
    Decoder pps(Decoder::kPps, name + ":n:1\n" + name + "n::text\n");
    ASSERT_EQ(pps_decoder_push(pps, nullptr), PPS_DECODER_OK);
    EXPECT_EQ(pps.Int(name.c_str()) + pps.String((name + "n").c_str()), "1text") << length;
  }
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
  Encoder setting(false);
  pps_encoder_start_object(setting, "@setting_status");
  pps_encoder_add_int(setting, "zmregion", 6);
  EXPECT_EQ(setting.Text(), "(null)") << "not while the object is open";
  pps_encoder_end_object(setting);
  EXPECT_EQ(setting.Text(), "@setting_status\nzmregion:n:6\n");

  Encoder launcher(false);
  pps_encoder_start_object(launcher, "@app-launcher");
  pps_encoder_start_object(launcher, "req");
  pps_encoder_add_int(launcher, "id", 5);
  pps_encoder_add_string(launcher, "cmd", "launch zelmarapp");
  pps_encoder_add_string(launcher, "app", "zmdisc");
  pps_encoder_add_string(launcher, "dat", "");
  pps_encoder_end_object(launcher);
  EXPECT_EQ(pps_encoder_end_object(launcher), PPS_ENCODER_OK);
  EXPECT_EQ(launcher.Text(),
            "@app-launcher\nreq:json:{\"id\":5,\"cmd\":\"launch zelmarapp\",\"app\":\"zmdisc\","
            "\"dat\":\"\"}\n");

  Encoder location(false);
  pps_encoder_start_object(location, "control");
  pps_encoder_add_string(location, "msg", "location");
  pps_encoder_add_string(location, "id", "10");
  pps_encoder_start_object(location, "dat");
  pps_encoder_add_int(location, "period", 1);
  pps_encoder_add_string(location, "provider", "gnss");
  pps_encoder_add_string(location, "fix_type", "best");
  pps_encoder_end_object(location);
  pps_encoder_end_object(location);
  EXPECT_EQ(location.Text(),
            "@control\nmsg::location\nid::10\n"
            "dat:json:{\"period\":1,\"provider\":\"gnss\",\"fix_type\":\"best\"}\n");
}

TEST(Encoder, EveryValueAsAttributeAndAsMember) {
  for (bool json : {false, true}) {
    Encoder e(json);
    pps_encoder_start_object(e, nullptr);
    pps_encoder_add_int(e, "i", INT_MIN);
    pps_encoder_add_int64(e, "l", INT64_MIN);
    pps_encoder_add_double(e, "d", 1.5);
    pps_encoder_add_double(e, "m", std::numeric_limits<double>::max());
    pps_encoder_add_double(e, "t", 0.1);
    pps_encoder_add_bool(e, "y", true);
    pps_encoder_add_bool(e, "f", false);
    pps_encoder_add_string(e, "s", "a:b\\c\"\r\x01");
    pps_encoder_add_string(e, "c", "1\n2\\3\t\x01\x1f\"");
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
    EXPECT_EQ(e.Text(),
              json ? "{\"i\":-2147483648,\"l\":-9223372036854775808,\"d\":1.5,"
                     "\"m\":1.7976931348623157e+308,\"t\":0.1,\"y\":true,\"f\":false,"
                     "\"s\":\"a:b\\\\c\\\"\\r\\u0001\",\"c\":\"1\\n2\\\\3\\t\\u0001\\u001f\\\"\","
                     "\"z\":null,\"a\":[1,\"x\\ny\",null,{},[]]}"
                   : "i:n:-2147483648\nl:n:-9223372036854775808\nd:n:1.5\n"
                     "m:n:1.7976931348623157e+308\nt:n:0.1\ny:b:true\nf:b:false\n"
                     "s::a:b\\c\"\r\x01\nc:c:1\\n2\\\\3\\t\\001\\037\"\n"
                     "z:json:null\na:json:[1,\"x\\ny\",null,{},[]]\n");
  }
}

TEST(Encoder, FailuresStickAndLeaveNoBuffer) {
  const double kInfinity = std::numeric_limits<double>::infinity();
  const struct {
    const char* what;
    pps_encoder_error_t error;
    std::function<void(pps_encoder_t*)> act;
  } cases[] = {
      {"null text", PPS_ENCODER_INVALID_VALUE,
       [](pps_encoder_t* e) { pps_encoder_add_string(e, "a", nullptr); }},
      {"infinite", PPS_ENCODER_INVALID_VALUE,
       [=](pps_encoder_t* e) { pps_encoder_add_double(e, "a", kInfinity); }},
      {"not a number", PPS_ENCODER_INVALID_VALUE,
       [](pps_encoder_t* e) { pps_encoder_add_double(e, "a", std::nan("")); }},
      {"no name", PPS_ENCODER_MISSING_PROP_NAME,
       [](pps_encoder_t* e) { pps_encoder_add_int(e, nullptr, 1); }},
      {"no name of an object", PPS_ENCODER_MISSING_PROP_NAME,
       [](pps_encoder_t* e) { pps_encoder_start_object(e, nullptr); }},
      {"no name in JSON", PPS_ENCODER_MISSING_PROP_NAME,
       [](pps_encoder_t* e) {
         pps_encoder_start_object(e, "a");
         pps_encoder_add_null(e, nullptr);
       }},
      {"wrong end", PPS_ENCODER_BAD_NESTING, [](pps_encoder_t* e) { pps_encoder_end_array(e); }},
      {"wrong end of an array", PPS_ENCODER_BAD_NESTING,
       [](pps_encoder_t* e) {
         pps_encoder_start_array(e, "a");
         pps_encoder_end_object(e);
       }},
      {"end too many", PPS_ENCODER_BAD_NESTING,
       [](pps_encoder_t* e) {
         pps_encoder_end_object(e);
         pps_encoder_end_object(e);
       }},
      {"outside of the object", PPS_ENCODER_BAD_NESTING,
       [](pps_encoder_t* e) {
         pps_encoder_end_object(e);
         pps_encoder_add_int(e, "a", 1);
       }},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    Encoder e(false);
    pps_encoder_start_object(e, "@o");
    c.act(e);
    EXPECT_EQ(pps_encoder_add_string(e, "later", nullptr), c.error) << "the first failure stays";
    EXPECT_EQ(pps_encoder_add_bool(e, "later", true), c.error);
    EXPECT_EQ(e.Text(), "(null)");
    pps_encoder_end_object(e);
    EXPECT_EQ(e.Text(), "(null)");
  }
}

TEST(Encoder, NamesThatALineCannotHold) {
  for (const char* name : {"", "a:b", "a\nb", "@a", "-a", "+a", "*a"}) {
    SCOPED_TRACE(name);
    Encoder e(false);
    pps_encoder_start_object(e, "o");
    EXPECT_EQ(pps_encoder_add_int(e, name, 1), PPS_ENCODER_INVALID_VALUE);
    Encoder deep(false);
    pps_encoder_start_object(deep, "o");
    pps_encoder_start_object(deep, "j");
    EXPECT_EQ(pps_encoder_add_int(deep, name, 1), PPS_ENCODER_OK) << "JSON holds any name";
  }
  for (const char* name : {"", "@", "a\nb"}) {
    Encoder e(false);
    EXPECT_EQ(pps_encoder_start_object(e, name), PPS_ENCODER_INVALID_VALUE) << name;
  }
}

TEST(Encoder, DepthIsBounded) {
  for (bool json : {false, true}) {
    Encoder e(json);
    pps_encoder_start_object(e, "o");
    for (int i = 1; i < kPpsEncoderMaxDepth; ++i) {
      ASSERT_EQ(pps_encoder_start_array(e, "a"), PPS_ENCODER_OK);
    }
    for (int i = 1; i < kPpsEncoderMaxDepth; ++i) pps_encoder_end_array(e);
    EXPECT_EQ(pps_encoder_end_object(e), PPS_ENCODER_OK);
    EXPECT_NE(e.Text(), "(null)");
    Encoder deep(json);
    for (int i = 0; i < kPpsEncoderMaxDepth; ++i) pps_encoder_start_object(deep, "o");
    EXPECT_EQ(pps_encoder_start_object(deep, "o"), PPS_ENCODER_BAD_NESTING);
  }
}

TEST(Encoder, SeveralObjectsAndSingleValues) {
  Encoder e(false);
  EXPECT_EQ(e.Text(), "");
  for (const char* name : {"one", "@two"}) {
    pps_encoder_start_object(e, name);
    pps_encoder_end_object(e);
  }
  EXPECT_EQ(e.Text(), "@one\n@two\n");
  Encoder json(true);
  pps_encoder_add_string(json, nullptr, "x");
  EXPECT_EQ(json.Text(), "\"x\"");
  EXPECT_EQ(pps_encoder_add_int(json, nullptr, 1), PPS_ENCODER_BAD_NESTING) << "one value only";
}

TEST(Encoder, GrowsPastTheInlineBufferAtEveryLength) {
  for (std::size_t length = kPpsEncoderInline - 12; length < kPpsEncoderInline + 12; ++length) {
    const std::string value(length, 'v');
    Encoder e(false);
    pps_encoder_start_object(e, "o");
    pps_encoder_add_string(e, "s", value.c_str());
    pps_encoder_end_object(e);
    EXPECT_EQ(e.Text(), "@o\ns::" + value + "\n");
  }
  Encoder e(true);
  pps_encoder_start_array(e, nullptr);
  std::string expected = "[";
  for (int i = 0; i < 20000; ++i) {
    pps_encoder_add_int(e, nullptr, i);
    expected += (i == 0 ? "" : ",") + std::to_string(i);
  }
  pps_encoder_end_array(e);
  EXPECT_EQ(e.Text(), expected + "]");
  pps_encoder_t again;
  pps_encoder_initialize(&again, true);
  pps_encoder_add_string(&again, nullptr, expected.c_str());
  pps_encoder_cleanup(&again);
  pps_encoder_cleanup(&again);
  EXPECT_EQ(pps_encoder_length(&again), 0);
}

// --- round trips ---------------------------------------------------------------------------------

TEST(RoundTrip, EveryCharacterInEveryPlace) {
  std::vector<std::string> values = {"",
                                     "\n",
                                     "\\",
                                     "\\n",
                                     "a\n\\n\n0",
                                     "\n\x01"
                                     "1",
                                     "\x7f",
                                     "gr\xc3\xbc\xc3\x9f\n\xe2\x82\xac \xf0\x9f\x98\x80",
                                     "\"quoted\"",
                                     "trailing\\\n\\"};
  for (int c = 1; c < 256; ++c) {
    const std::string one(1, static_cast<char>(c));
    values.push_back(one);
    values.push_back("a" + one + "\n" + one + "7");
  }
  for (const std::string& value : values) {
    Encoder pps(false);
    pps_encoder_start_object(pps, "o");
    pps_encoder_add_string(pps, "top", value.c_str());
    pps_encoder_start_object(pps, "j");
    pps_encoder_add_string(pps, value.c_str(), value.c_str());
    pps_encoder_end_object(pps);
    pps_encoder_end_object(pps);
    Decoder d(Decoder::kPps, pps.Text());
    ASSERT_EQ(pps_decoder_push(d, nullptr), PPS_DECODER_OK);
    EXPECT_EQ(d.String("top"), value);
    ASSERT_EQ(pps_decoder_push(d, "j"), PPS_DECODER_OK);
    EXPECT_EQ(d.String(value.c_str()), value);
    EXPECT_EQ(pps_decoder_status(d, true), PPS_DECODER_OK);

    Encoder json(true);
    pps_encoder_add_string(json, nullptr, value.c_str());
    Decoder j(Decoder::kJson, json.Text());
    EXPECT_EQ(j.String(nullptr), value);
  }
}

TEST(RoundTrip, Numbers) {
  std::mt19937_64 random(3);
  for (int i = 0; i < 5000; ++i) {
    const std::uint64_t bits = random() >> (random() % 64);
    const std::int64_t integer = static_cast<std::int64_t>(bits) * (i % 2 == 0 ? 1 : -1);
    double real;
    std::memcpy(&real, &bits, sizeof(real));
    if (!std::isfinite(real)) real = 0.5;
    Encoder e(false);
    pps_encoder_start_object(e, "o");
    pps_encoder_add_int64(e, "i", integer);
    pps_encoder_add_double(e, "r", real);
    pps_encoder_end_object(e);
    Decoder d(Decoder::kPps, e.Text());
    ASSERT_EQ(pps_decoder_push(d, nullptr), PPS_DECODER_OK);
    std::int64_t integer_read = 0;
    double real_read = 0;
    ASSERT_EQ(pps_decoder_get_int64(d, "i", &integer_read), PPS_DECODER_OK);
    ASSERT_EQ(pps_decoder_get_double(d, "r", &real_read), PPS_DECODER_OK);
    ASSERT_EQ(integer_read, integer);
    ASSERT_EQ(real_read, real);
  }
}

}  // namespace
