// A file of the host that a command writes.
#ifndef KORVANDIS_STATION_OUTPUT_FILE_H
#define KORVANDIS_STATION_OUTPUT_FILE_H

#include <string>

#include "tools/program.h"

namespace station {

// Plain file, device or FIFO. No wait outlives a signal: neither the one for a FIFO's reader nor
// the one for its room.
class OutputFile {
 public:
  explicit OutputFile(tools::Interrupt* interrupt) : interrupt_(interrupt) {}

  // Opens the file for writing. A plain file that is there already is only overwritten with
  // `force`. Returns an empty text, or what is wrong.
  std::string Open(const std::string& path, bool force);

  // Writes all of `text`. Returns an empty text, or what is wrong.
  std::string Write(const std::string& text);

 private:
  bool WaitAMoment();
  std::string Problem(const std::string& reason) const;

  tools::Interrupt* interrupt_;
  platform::Descriptor file_;
  std::string path_;
};

}  // namespace station

#endif  // KORVANDIS_STATION_OUTPUT_FILE_H
