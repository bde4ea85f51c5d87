// Members of JSON objects for reports and events. Inside this room only.
#ifndef KORVANDIS_STATION_JSON_WRITER_H
#define KORVANDIS_STATION_JSON_WRITER_H

#include <rapidjson/ostreamwrapper.h>

#include <cmath>
#include <ostream>
#include <string>
#include <vector>

#include "records/database.h"
#include "records/json_list.h"
#include "tools/program.h"

namespace station {

// `text` as UTF-8: a byte that is not part of any becomes the character of its number.
inline std::string JsonText(const std::string& text) {
  std::string valid;
  for (std::string_view rest = text; !rest.empty();) {
    const std::size_t length = tools::Utf8Length(rest);
    const auto byte = static_cast<unsigned char>(rest[0]);
    if (length == 0) {
      valid += static_cast<char>(0xC0 | byte >> 6);
      valid += static_cast<char>(0x80 | (byte & 0x3F));
    } else {
      valid += rest.substr(0, length);
    }
    rest.remove_prefix(length == 0 ? 1 : length);
  }
  return valid;
}

// Writes to a stream with one of RapidJSON's writers.
template <typename Writer>
class Json {
 public:
  explicit Json(std::ostream& out) : stream_(out), writer_(stream_) {}

  Writer& writer() { return writer_; }
  void Open() { writer_.StartObject(); }
  void Close() { writer_.EndObject(); }
  void Key(const char* name) { writer_.Key(name); }
  void Text(const char* name, const std::string& text) {
    Key(name);
    const std::string valid = JsonText(text);
    writer_.String(valid.data(), static_cast<rapidjson::SizeType>(valid.size()));
  }
  void TextUnlessEmpty(const char* name, const std::string& text) {
    if (!text.empty()) Text(name, text);
  }
  // A number that is not finite is left out.
  void Number(const char* name, double number) {
    if (std::isfinite(number)) Raw(name, qnx::Formatted("%.15g", number));
  }
  void Seconds(double seconds) { Raw("seconds", qnx::Formatted("%.3f", seconds)); }

  template <typename Items, typename Write>
  void List(const char* name, const Items& items, Write write) {
    records::WriteList(&writer_, name, items, write);
  }

 private:
  void Raw(const char* name, const std::string& number) {
    Key(name);
    writer_.RawValue(number.data(), number.size(), rapidjson::kNumberType);
  }

  rapidjson::OStreamWrapper stream_;
  Writer writer_;
};

template <typename Writer>
void WriteMeasurements(const std::vector<records::Measurement>& measurements, Writer* json) {
  json->List("measurements", measurements, [&](const records::Measurement& measurement) {
    json->Text("name", measurement.name);
    json->Text("text", measurement.text);
    json->Number("value", measurement.number);
    json->TextUnlessEmpty("unit", measurement.unit);
    json->TextUnlessEmpty("expected", measurement.expected);
    json->Number("low", measurement.low);
    json->Number("high", measurement.high);
    json->Text("outcome", records::OutcomeText(measurement.outcome));
  });
}

}  // namespace station

#endif  // KORVANDIS_STATION_JSON_WRITER_H
