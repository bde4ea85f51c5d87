// Members of JSON objects; for this room only.
#ifndef KORVANDIS_RECORDS_JSON_H
#define KORVANDIS_RECORDS_JSON_H

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cmath>
#include <string>

#include "records/json_list.h"

namespace records {

class JsonWriter {
 public:
  JsonWriter() : writer_(buffer_) {}

  // The JSON written so far.
  std::string text() const { return {buffer_.GetString(), buffer_.GetSize()}; }

  rapidjson::Writer<rapidjson::StringBuffer>& writer() { return writer_; }
  void Open() { writer_.StartObject(); }
  void Close() { writer_.EndObject(); }
  void Key(const char* name) { writer_.Key(name); }

  // The bytes as they are, also those that are no UTF-8.
  void Text(const char* name, const std::string& text) {
    Key(name);
    writer_.String(text.data(), static_cast<rapidjson::SizeType>(text.size()));
  }
  void Whole(const char* name, long long number) {
    Key(name);
    writer_.Int64(number);
  }
  // null for a number that is not finite.
  void Number(const char* name, double number) {
    Key(name);
    if (std::isfinite(number)) {
      writer_.Double(number);
    } else {
      writer_.Null();
    }
  }

  // A list of objects, whose members `write` writes.
  template <typename Items, typename Write>
  void List(const char* name, const Items& items, Write write) {
    WriteList(&writer_, name, items, write);
  }

 private:
  rapidjson::StringBuffer buffer_;
  rapidjson::Writer<rapidjson::StringBuffer> writer_;
};

}  // namespace records

#endif  // KORVANDIS_RECORDS_JSON_H
