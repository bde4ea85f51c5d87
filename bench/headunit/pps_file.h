// One open file of the PPS manager.
#ifndef KORVANDIS_HEADUNIT_PPS_FILE_H
#define KORVANDIS_HEADUNIT_PPS_FILE_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "open_file.h"
#include "pps_path.h"
#include "pps_tree.h"

namespace headunit {

// A change of an object as its followers are told of it, formed when the first of them needs it.
class ObjectChange {
 public:
  ObjectChange(PpsObject* object, const std::vector<PpsChange>& changes)
      : object_(object), changes_(changes) {}

  // The object line with the object's whole text, or with the changed lines alone.
  const SharedText& Whole() { return TextOf(object_); }
  const SharedText& Delta();

 private:
  PpsObject* const object_;
  const std::vector<PpsChange>& changes_;
  SharedText delta_;
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

  // Tells a follower of a change. Once more than the backlog waits, all of it is dropped for one
  // message, a line "|@name" and the object's text at the time when the reader has caught up. Until
  // then a change costs nothing.
  void SendChange(ObjectChange* change);

  // Sends one message of or to a server. Past the backlog the line "|@name" and the newest message
  // take the place of all that waits.
  void SendMessage(const SharedText& message);

 private:
  bool Overflows(std::size_t size);
  void Supersede();

  const PpsOptions options_;
  PpsObject* object_;
  const std::uint64_t id_;
  const std::string listing_;
  SharedText newest_;  // the newest message of or to a server, once others were dropped for it
};

}  // namespace headunit

#endif  // KORVANDIS_HEADUNIT_PPS_FILE_H
