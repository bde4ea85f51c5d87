#include "pps_file.h"

#include <utility>

namespace headunit {

PpsFile::PpsFile(std::uint32_t flags, const PpsOptions& options, PpsObject* object,
                 std::uint64_t id)
    : OpenFile(flags), options_(options), object_(object), id_(id) {
  // Half of the backlog may lie in the socket, where nothing can be dropped.
  outbox().SetWindow(options_.backlog / 2);
}

PpsFile::PpsFile(std::uint32_t flags, std::string listing)
    : OpenFile(flags), object_(nullptr), id_(0), listing_(std::move(listing)) {}

std::string PpsFile::Address() const { return object_->name + "." + std::to_string(id_); }

void PpsFile::Orphan() {
  if (outbox().superseded()) outbox().DropQueue();  // its text is gone with the object
  if (Follows()) Send("-@" + object_->name + "\n");
  if (CanRead()) EndOfFile();
  object_ = nullptr;
}

bool PpsFile::Overflows(std::size_t size) {
  return !outbox().idle() && outbox().Waiting() + size > options_.backlog;
}

void PpsFile::SendChange(ObjectChange* change) {
  newest_.reset();
  if (outbox().superseded()) return;
  const SharedText& text = options_.delta ? change->Delta() : change->Whole();
  if (Overflows(text->size())) return Supersede();
  Send(text);
}

void PpsFile::SendMessage(const SharedText& message) {
  if (outbox().superseded()) {
    newest_ = message;
  } else if (Overflows(message->size())) {
    newest_ = message;
    Supersede();
  } else {
    Send(message);
  }
}

void PpsFile::Supersede() {
  outbox().Supersede(
      [this] { return "|@" + object_->name + "\n" + *(newest_ ? newest_ : TextOf(object_)); });
  WatchQueue();
}

const SharedText& ObjectChange::Delta() {
  if (!delta_) delta_ = FormatPpsMessage(object_->name, changes_);
  return delta_;
}

}  // namespace headunit
