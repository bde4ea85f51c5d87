// One open file of the PPS manager.
#ifndef KORVANDIS_HEADUNIT_PPS_FILE_H
#define KORVANDIS_HEADUNIT_PPS_FILE_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "open_file.h"
#include "pps_manager.h"

namespace headunit {

const std::size_t kDefaultBacklog = 256 * 1024;  // bytes that may wait for a reader

// What follows '?' in a path.
struct PpsOptions {
  bool wait = false;
  bool delta = false;
  bool server = false;
  std::size_t backlog = kDefaultBacklog;
};

class PpsFile : public OpenFile {
 public:
  PpsFile(std::uint32_t flags, const PpsOptions& options, PpsObject* object, std::uint64_t id);

  // The listing of a directory, a line an entry.
  PpsFile(std::uint32_t flags, std::string listing);

  // Null for a listing, and once the object was removed.
  PpsObject* object() const { return object_; }
  const std::string& listing() const { return listing_; }
  const PpsOptions& options() const { return options_; }
  std::string Address() const;  // "name.ID", as the server knows this client

  // The object is removed: says so and ends the stream.
  void Orphan();

  // True when the file is told of changes by others.
  bool Follows() const { return CanRead() && (options_.wait || options_.delta); }

  // Sends the object's text. Past the backlog only the newest one waits.
  void SendText(const std::string& text);

  // Sends changed lines, without the object line. Past the backlog the file gets the whole text
  // instead, and the names that were deleted meanwhile, so that nothing is lost.
  void SendDelta(const std::string& lines);

  // Sends one message of or to a server. Past the backlog the oldest is dropped.
  void SendMessage(const std::string& message);

 private:
  bool Overflows(std::size_t size);
  void DropOldestFor(std::size_t size);

  // Deletion lines of what is gone from the object by `lines` or by what waits in the queue.
  std::string DeletedUnseen(const std::string& lines) const;

  const PpsOptions options_;
  PpsObject* object_;
  const std::uint64_t id_;
  const std::string listing_;
};

// The object's whole text, formed anew when it changed.
const std::string& TextOf(PpsObject* object);

}  // namespace headunit

#endif  // KORVANDIS_HEADUNIT_PPS_FILE_H
