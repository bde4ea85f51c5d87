// Decoding side by side: a position response with 24 satellites, and a version out of an object of
// 16 KiB.
//
// Every contestant gets a fresh copy of the text in each round, reads the same values by name into
// the same structure, and is checked once before the clock starts. Each is used at its best:
// simdjson keeps its parser and gets a padded buffer, RapidJSON parses in situ into memory that it
// was given. The decoder is initialised and cleaned up in each round, as the service does it.
//
// The 16 KiB object is read in two ways. "Object": the decoder gets the PPS text, the others one
// JSON document with the same members. "Line": the others get the PPS text too, but search the
// attribute's line by hand and parse only what stands there, so they check nothing else.
#include <benchmark/benchmark.h>
#include <pps.h>
#include <rapidjson/document.h>
#include <simdjson.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <nlohmann/json.hpp>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace {

// --- the texts and what is in them --------------------------------------------------------------

const int kSatellites = 24;

struct Satellite {
  int id = 0;
  double cno = 0;
  bool used = false;
  int azimuth = 0;
  int elevation = 0;

  bool operator==(const Satellite& o) const {
    return id == o.id && cno == o.cno && used == o.used && azimuth == o.azimuth &&
           elevation == o.elevation;
  }
};

struct Position {
  double latitude = 0;
  double longitude = 0;
  double altitude = 0;
  int speed = 0;
  int ttff = 0;
  std::int64_t utc = 0;
  int angle = 0;
  int count = 0;
  Satellite satellites[kSatellites];

  bool operator==(const Position& o) const {
    for (int i = 0; i < kSatellites; ++i) {
      if (!(satellites[i] == o.satellites[i])) return false;
    }
    return latitude == o.latitude && longitude == o.longitude && altitude == o.altitude &&
           speed == o.speed && ttff == o.ttff && utc == o.utc && angle == o.angle &&
           count == o.count;
  }
};

using Random = std::minstd_rand;

int Below(Random* random, int limit) { return static_cast<int>((*random)() % unsigned(limit)); }

Position MakePosition(unsigned seed) {
  Random random(seed + 1);
  Position p;
  p.latitude = (312304164 + Below(&random, 1000000)) / 1e7;
  p.longitude = (121473701 + Below(&random, 100000)) / 1e6;
  p.altitude = 13.25 + Below(&random, 20);
  p.speed = Below(&random, 130);
  p.ttff = Below(&random, 40000);
  p.utc = 1700000000123 + Below(&random, 100000000);
  p.angle = Below(&random, 360);
  p.count = kSatellites;
  for (int i = 0; i < kSatellites; ++i) {
    Satellite& s = p.satellites[i];
    s.id = i * 4 + 1 + Below(&random, 4);
    s.cno = 18 + Below(&random, 32) + Below(&random, 4) * 0.25;
    s.used = Below(&random, 5) < 3;
    s.azimuth = Below(&random, 360);
    s.elevation = Below(&random, 91);
  }
  return p;
}

std::string PositionText(const Position& p) {
  char head[256];
  std::snprintf(head, sizeof(head),
                "{\"latitude\":%.7f,\"longitude\":%.6f,\"altitude\":%.2f,\"speed\":%d,\"ttff\":%d,"
                "\"utc\":%lld,\"Angle\":%d,\"satellites\":[",
                p.latitude, p.longitude, p.altitude, p.speed, p.ttff, static_cast<long long>(p.utc),
                p.angle);
  std::string text = head;
  for (int i = 0; i < kSatellites; ++i) {
    const Satellite& s = p.satellites[i];
    char element[128];
    std::snprintf(element, sizeof(element),
                  "%s{\"id\":%d,\"cno\":%g,\"used\":%s,\"azimuth\":%d,\"elevation\":%d}",
                  i == 0 ? "" : ",", s.id, s.cno, s.used ? "true" : "false", s.azimuth,
                  s.elevation);
    text += element;
  }
  return text + "]}";
}

// The records of the parts of one unit, each about a hundred bytes: {"version":...}.
struct Versions {
  explicit Versions(unsigned seed) {
    const std::size_t kObjectSize = 16 * 1024;
    const std::size_t kAround = 13;  // name, encoding and line end
    Random random(seed + 1);
    for (std::size_t size = 0; size < kObjectSize; size += records.back().size() + kAround) {
      char record[160];
      std::snprintf(
          record, sizeof(record),
          "{\"version\":\"KRV_%02d.%02d.%d\",\"model\":\"ZM-%d\",\"date\":\"2024-%02d-%02d\","
          "\"build\":%d}",
          Below(&random, 100), Below(&random, 100), Below(&random, 10000), Below(&random, 1000),
          Below(&random, 12) + 1, Below(&random, 28) + 1, Below(&random, 1000000));
      records.push_back(record);
    }
  }

  std::string Name(std::size_t i) const {
    return i == records.size() / 2 ? "mpu" : "part" + std::to_string(i);
  }

  std::string PpsText() const {
    std::string text = "@version_status\n";
    for (std::size_t i = 0; i < records.size(); ++i) text += Name(i) + ":json:" + records[i] + "\n";
    return text;
  }

  std::string JsonText() const {
    std::string text;
    for (std::size_t i = 0; i < records.size(); ++i) {
      text += (i == 0 ? "{\"" : ",\"") + Name(i) + "\":" + records[i];
    }
    return text + "}";
  }

  std::string Expected() const {
    const std::string& record = records[records.size() / 2];
    const std::size_t begin = record.find(":\"") + 2;
    return record.substr(begin, record.find('"', begin) - begin);
  }

  std::vector<std::string> records;
};

// The texts, and the buffer into which each round copies the next one.
class Buffer {
 public:
  explicit Buffer(std::vector<std::string> texts) : texts_(std::move(texts)) {
    std::size_t longest = 0;
    for (const std::string& text : texts_) longest = std::max(longest, text.size());
    copy_.resize(longest + simdjson::SIMDJSON_PADDING);
  }
  char* Fresh() {
    current_ = current_ + 1 < texts_.size() ? current_ + 1 : 0;
    std::memcpy(copy_.data(), texts_[current_].c_str(), size() + 1);
    return copy_.data();
  }
  std::size_t current() const { return current_; }  // the text that was copied last
  std::size_t size() const { return texts_[current_].size(); }
  std::size_t capacity() const { return copy_.size(); }

 private:
  std::vector<std::string> texts_;
  std::vector<char> copy_;
  std::size_t current_ = 0;
};

// The JSON of the attribute "mpu" in PPS text, searched by hand; its line end becomes a terminator.
char* FindLine(char* text, std::size_t size, std::size_t* length) {
  static const char kStart[] = "\nmpu:json:";
  const std::size_t kStartSize = sizeof(kStart) - 1;
  char* const value = static_cast<char*>(memmem(text, size, kStart, kStartSize)) + kStartSize;
  char* const end =
      static_cast<char*>(std::memchr(value, '\n', size - static_cast<std::size_t>(value - text)));
  *end = '\0';
  *length = static_cast<std::size_t>(end - value);
  return value;
}

// --- contestants --------------------------------------------------------------------------------
//
// Each has ReadPosition(copy, size, capacity, position) and ReadVersion(copy, size, capacity),
// which returns the version of "mpu" out of a JSON object of parts or, with `bare`, out of its
// record alone.

class Ours {
 public:
  void ReadPosition(char* copy, std::size_t, std::size_t, Position* p) {
    pps_decoder_t d;
    pps_decoder_initialize(&d, nullptr);
    pps_decoder_parse_json_str(&d, copy);
    pps_decoder_push(&d, nullptr);
    pps_decoder_get_double(&d, "latitude", &p->latitude);
    pps_decoder_get_double(&d, "longitude", &p->longitude);
    pps_decoder_get_double(&d, "altitude", &p->altitude);
    pps_decoder_get_int(&d, "speed", &p->speed);
    pps_decoder_get_int(&d, "ttff", &p->ttff);
    pps_decoder_get_int64(&d, "utc", &p->utc);
    pps_decoder_get_int(&d, "Angle", &p->angle);
    if (pps_decoder_push_array(&d, "satellites") == PPS_DECODER_OK) {
      p->count = pps_decoder_length(&d);
      for (int i = 0; i < p->count && i < kSatellites; ++i) {
        Satellite* const s = &p->satellites[i];
        pps_decoder_push(&d, nullptr);
        pps_decoder_get_int(&d, "id", &s->id);
        pps_decoder_get_double(&d, "cno", &s->cno);
        pps_decoder_get_bool(&d, "used", &s->used);
        pps_decoder_get_int(&d, "azimuth", &s->azimuth);
        pps_decoder_get_int(&d, "elevation", &s->elevation);
        pps_decoder_pop(&d);
      }
      pps_decoder_pop(&d);
    }
    pps_decoder_pop(&d);
    pps_decoder_cleanup(&d);
  }

  std::string_view ReadPpsVersion(char* copy) {
    pps_decoder_t d;
    const char* version = "";
    pps_decoder_initialize(&d, nullptr);
    pps_decoder_parse_pps_str(&d, copy);
    pps_decoder_push(&d, nullptr);
    pps_decoder_push(&d, "mpu");
    pps_decoder_get_string(&d, "version", &version);
    pps_decoder_pop(&d);
    pps_decoder_pop(&d);
    pps_decoder_cleanup(&d);
    return version;
  }
};

class RapidJsonInSitu {
 public:
  RapidJsonInSitu() : memory_(64 * 1024), stack_(16 * 1024) {}

  void ReadPosition(char* copy, std::size_t, std::size_t, Position* p) {
    Allocator allocator(memory_.data(), memory_.size());
    Allocator stack(stack_.data(), stack_.size());
    Document d(&allocator, 4096, &stack);
    d.ParseInsitu(copy);
    p->latitude = d["latitude"].GetDouble();
    p->longitude = d["longitude"].GetDouble();
    p->altitude = d["altitude"].GetDouble();
    p->speed = d["speed"].GetInt();
    p->ttff = d["ttff"].GetInt();
    p->utc = d["utc"].GetInt64();
    p->angle = d["Angle"].GetInt();
    p->count = 0;
    for (const auto& element : d["satellites"].GetArray()) {
      Satellite* const s = &p->satellites[p->count++];
      s->id = element["id"].GetInt();
      s->cno = element["cno"].GetDouble();
      s->used = element["used"].GetBool();
      s->azimuth = element["azimuth"].GetInt();
      s->elevation = element["elevation"].GetInt();
    }
  }

  std::string_view ReadVersion(char* copy, std::size_t, std::size_t, bool bare) {
    Allocator allocator(memory_.data(), memory_.size());
    Allocator stack(stack_.data(), stack_.size());
    Document d(&allocator, 4096, &stack);
    d.ParseInsitu(copy);
    return bare ? d["version"].GetString() : d["mpu"]["version"].GetString();
  }

 private:
  using Allocator = rapidjson::MemoryPoolAllocator<>;
  using Document = rapidjson::GenericDocument<rapidjson::UTF8<>, Allocator, Allocator>;

  std::vector<char> memory_;
  std::vector<char> stack_;
};

class SimdJsonDom {
 public:
  void ReadPosition(char* copy, std::size_t size, std::size_t, Position* p) {
    simdjson::dom::element d;
    Check(parser_.parse(copy, size, false).get(d));
    Check(d["latitude"].get(p->latitude));
    Check(d["longitude"].get(p->longitude));
    Check(d["altitude"].get(p->altitude));
    p->speed = Int(d["speed"]);
    p->ttff = Int(d["ttff"]);
    Check(d["utc"].get(p->utc));
    p->angle = Int(d["Angle"]);
    p->count = 0;
    for (simdjson::dom::element element : d["satellites"].get_array()) {
      Satellite* const s = &p->satellites[p->count++];
      s->id = Int(element["id"]);
      Check(element["cno"].get_double().get(s->cno));
      Check(element["used"].get(s->used));
      s->azimuth = Int(element["azimuth"]);
      s->elevation = Int(element["elevation"]);
    }
  }

  std::string_view ReadVersion(char* copy, std::size_t size, std::size_t, bool bare) {
    simdjson::dom::element d;
    Check(parser_.parse(copy, size, false).get(d));
    return bare ? d["version"].get_string().value() : d["mpu"]["version"].get_string().value();
  }

 private:
  static void Check(simdjson::error_code error) {
    if (error != simdjson::SUCCESS) std::abort();
  }
  static int Int(simdjson::simdjson_result<simdjson::dom::element> element) {
    return static_cast<int>(element.get_int64().value());
  }

  simdjson::dom::parser parser_;
};

// Looks members up in any order, as everybody else does.
class SimdJsonOnDemand {
 private:
  template <typename Object>
  __attribute__((always_inline)) static auto Find(Object& object, std::string_view name) {
    return object.find_field_unordered(name);
  }

  template <typename Value>
  __attribute__((always_inline)) static int Int(Value value) {
    return static_cast<int>(value.get_int64().value());
  }

 public:
  void ReadPosition(char* copy, std::size_t size, std::size_t capacity, Position* p) {
    auto document = parser_.iterate(copy, size, capacity);
    auto d = document.get_object();
    p->latitude = Find(d, "latitude").get_double();
    p->longitude = Find(d, "longitude").get_double();
    p->altitude = Find(d, "altitude").get_double();
    p->speed = Int(Find(d, "speed"));
    p->ttff = Int(Find(d, "ttff"));
    p->utc = Find(d, "utc").get_int64();
    p->angle = Int(Find(d, "Angle"));
    p->count = 0;
    for (auto element : Find(d, "satellites").get_array()) {
      Satellite* const s = &p->satellites[p->count++];
      auto object = element.get_object();
      s->id = Int(Find(object, "id"));
      s->cno = Find(object, "cno").get_double();
      s->used = Find(object, "used").get_bool();
      s->azimuth = Int(Find(object, "azimuth"));
      s->elevation = Int(Find(object, "elevation"));
    }
  }

  std::string_view ReadVersion(char* copy, std::size_t size, std::size_t capacity, bool bare) {
    auto document = parser_.iterate(copy, size, capacity);
    if (bare) return Find(document, "version").get_string();
    auto part = Find(document, "mpu").get_object();
    return Find(part, "version").get_string();
  }

 private:
  simdjson::ondemand::parser parser_;
};

class Nlohmann {
 public:
  void ReadPosition(char* copy, std::size_t size, std::size_t, Position* p) {
    const nlohmann::json d = nlohmann::json::parse(copy, copy + size);
    p->latitude = d["latitude"].get<double>();
    p->longitude = d["longitude"].get<double>();
    p->altitude = d["altitude"].get<double>();
    p->speed = d["speed"].get<int>();
    p->ttff = d["ttff"].get<int>();
    p->utc = d["utc"].get<std::int64_t>();
    p->angle = d["Angle"].get<int>();
    p->count = 0;
    for (const nlohmann::json& element : d["satellites"]) {
      Satellite* const s = &p->satellites[p->count++];
      s->id = element["id"].get<int>();
      s->cno = element["cno"].get<double>();
      s->used = element["used"].get<bool>();
      s->azimuth = element["azimuth"].get<int>();
      s->elevation = element["elevation"].get<int>();
    }
  }

  std::string_view ReadVersion(char* copy, std::size_t size, std::size_t, bool bare) {
    const nlohmann::json d = nlohmann::json::parse(copy, copy + size);
    version_ = bare ? d["version"].get_ref<const std::string&>()
                    : d["mpu"]["version"].get_ref<const std::string&>();
    return version_;
  }

 private:
  std::string version_;
};

// --- rounds -------------------------------------------------------------------------------------

const unsigned kPositions = 256;
const unsigned kObjects = 16;

// Checks what `read` returns for each text, and ends the program when it is wrong; then measures
// it.
template <typename Read, typename Expected>
void Run(benchmark::State& state, Buffer* buffer, const std::vector<Expected>& expected,
         Read read) {
  for (std::size_t i = 0; i < expected.size(); ++i) {
    const auto& value = read();
    if (!(value == expected[buffer->current()])) {
      std::fprintf(stderr, "pps_bench: a contestant reads other values than the text holds\n");
      std::exit(1);
    }
  }
  std::size_t bytes = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(read());
    bytes += buffer->size();
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(bytes));
}

template <typename Contestant>
void BM_Position(benchmark::State& state) {
  std::vector<Position> expected;
  std::vector<std::string> texts;
  for (unsigned i = 0; i < kPositions; ++i) {
    expected.push_back(MakePosition(i));
    texts.push_back(PositionText(expected.back()));
  }
  Buffer buffer(texts);
  Contestant contestant;
  Position position;
  Run(state, &buffer, expected, [&]() -> const Position& {
    char* const copy = buffer.Fresh();
    contestant.ReadPosition(copy, buffer.size(), buffer.capacity(), &position);
    return position;
  });
}

// Reads the version of "mpu" with `read`, which gets a copy of the object's text in one of the two
// forms.
template <typename Read>
void RunObject(benchmark::State& state, bool pps, Read read) {
  std::vector<std::string> expected;
  std::vector<std::string> texts;
  for (unsigned i = 0; i < kObjects; ++i) {
    const Versions versions(i);
    expected.push_back(versions.Expected());
    texts.push_back(pps ? versions.PpsText() : versions.JsonText());
  }
  Buffer buffer(texts);
  Run(state, &buffer, expected, [&] {
    char* const copy = buffer.Fresh();
    return read(copy, buffer.size(), buffer.capacity());
  });
}

template <typename Contestant>
void BM_Object(benchmark::State& state) {
  Contestant contestant;
  RunObject(state, false, [&](char* copy, std::size_t size, std::size_t capacity) {
    return contestant.ReadVersion(copy, size, capacity, false);
  });
}

template <>
void BM_Object<Ours>(benchmark::State& state) {
  Ours ours;
  RunObject(state, true,
            [&](char* copy, std::size_t, std::size_t) { return ours.ReadPpsVersion(copy); });
}

template <typename Contestant>
void BM_Line(benchmark::State& state) {
  Contestant contestant;
  RunObject(state, true, [&](char* copy, std::size_t size, std::size_t) {
    std::size_t length;
    char* const value = FindLine(copy, size, &length);
    return contestant.ReadVersion(value, length, length + simdjson::SIMDJSON_PADDING, true);
  });
}

BENCHMARK_TEMPLATE(BM_Position, Ours);
BENCHMARK_TEMPLATE(BM_Position, RapidJsonInSitu);
BENCHMARK_TEMPLATE(BM_Position, SimdJsonDom);
BENCHMARK_TEMPLATE(BM_Position, SimdJsonOnDemand);
BENCHMARK_TEMPLATE(BM_Position, Nlohmann);

BENCHMARK_TEMPLATE(BM_Object, Ours);
BENCHMARK_TEMPLATE(BM_Object, RapidJsonInSitu);
BENCHMARK_TEMPLATE(BM_Object, SimdJsonDom);
BENCHMARK_TEMPLATE(BM_Object, SimdJsonOnDemand);
BENCHMARK_TEMPLATE(BM_Object, Nlohmann);

BENCHMARK_TEMPLATE(BM_Line, RapidJsonInSitu);
BENCHMARK_TEMPLATE(BM_Line, SimdJsonDom);
BENCHMARK_TEMPLATE(BM_Line, SimdJsonOnDemand);
BENCHMARK_TEMPLATE(BM_Line, Nlohmann);

}  // namespace

BENCHMARK_MAIN();
