// A list of objects in JSON.
#ifndef KORVANDIS_RECORDS_JSON_LIST_H
#define KORVANDIS_RECORDS_JSON_LIST_H

namespace records {

// Writes the member `name`: an object for each item, whose members `write` writes. `writer` is one
// of RapidJSON's.
template <typename Writer, typename Items, typename Write>
void WriteList(Writer* writer, const char* name, const Items& items, Write write) {
  writer->Key(name);
  writer->StartArray();
  for (const auto& item : items) {
    writer->StartObject();
    write(item);
    writer->EndObject();
  }
  writer->EndArray();
}

}  // namespace records

#endif  // KORVANDIS_RECORDS_JSON_LIST_H
