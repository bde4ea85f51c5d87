#include "pps_file.h"

#include <set>
#include <utility>

namespace headunit {

PpsFile::PpsFile(std::uint32_t flags, const PpsOptions& options, PpsObject* object,
                 std::uint64_t id)
    : OpenFile(flags), options_(options), object_(object), id_(id) {
  // Half of the backlog may lie in the socket, where nothing can be dropped any more.
  outbox().SetWindow(options_.backlog / 2);
}

PpsFile::PpsFile(std::uint32_t flags, std::string listing)
    : OpenFile(flags), object_(nullptr), id_(0), listing_(std::move(listing)) {}

std::string PpsFile::Address() const { return object_->name + "." + std::to_string(id_); }

void PpsFile::Orphan() {
  if (Follows()) Send("-@" + object_->name + "\n");
  if (CanRead()) EndOfFile();
  object_ = nullptr;
}

bool PpsFile::Overflows(std::size_t size) {
  return !outbox().queue_empty() && outbox().Waiting() + size > options_.backlog;
}

void PpsFile::DropOldestFor(std::size_t size) {
  while (Overflows(size)) outbox().DropOldest();
}

void PpsFile::SendText(const std::string& text) {
  DropOldestFor(text.size());
  Send(text);
}

void PpsFile::SendMessage(const std::string& message) {
  DropOldestFor(message.size());
  Send(message);
}

void PpsFile::SendDelta(const std::string& lines) {
  if (!Overflows(lines.size())) {
    Send("@" + object_->name + "\n" + lines);
    return;
  }
  std::string text = DeletedUnseen(lines);
  if (text.size() > options_.backlog) text.clear();
  text.insert(0, TextOf(object_));
  outbox().DropQueue();
  Send(text);
}

std::string PpsFile::DeletedUnseen(const std::string& lines) const {
  PpsText parsed;
  ParsePpsText(lines, &parsed);
  for (const std::string& message : outbox().queue()) ParsePpsText(message, &parsed);

  std::set<std::string> names;
  for (const PpsChange& change : parsed.changes) {
    if (change.deleted && object_->attributes.count(change.name) == 0) names.insert(change.name);
  }
  std::string text;
  for (const std::string& name : names) text += "-" + name + "\n";
  return text;
}

const std::string& TextOf(PpsObject* object) {
  if (object->text.empty()) object->text = FormatPpsObject(object->name, object->attributes);
  return object->text;
}

}  // namespace headunit
