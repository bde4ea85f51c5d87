#include "pps_manager.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "log.h"
#include "pps_file.h"
#include "pps_path.h"

namespace headunit {
namespace {

const std::size_t kLargestObject = 64 * 1024 * 1024;  // bytes of names and values

PpsFile* AsPps(OpenFile* file) { return static_cast<PpsFile*>(file); }

}  // namespace

PpsManager::PpsManager(EventLoop* loop, std::string path)
    : ResourceManager(loop, std::move(path)) {}

PpsManager::~PpsManager() { Close(); }

std::string PpsManager::Load(const std::string& path, const std::string& text) {
  PpsRequest request;
  if (ParsePpsRequest(path, &request) != 0 || request.path.empty() ||
      tree_.CheckWay(request.path) == ENOTDIR || tree_.IsDirectory(request.path)) {
    return "not a name for an object";
  }
  PpsText parsed;
  const std::size_t bad_line = ParsePpsText(text, &parsed);
  if (bad_line != 0) return "line " + std::to_string(bad_line) + " is no PPS line";
  PpsObject* const object = tree_.Create(request.path);
  if (object == nullptr) return "too many objects";
  return Write(object, std::move(parsed), nullptr) ? "" : "too large";
}

void PpsManager::SetDelay(const std::string& path, std::chrono::milliseconds delay) {
  PpsRequest request;
  if (ParsePpsRequest(path, &request) != 0) return;
  if (delay > std::chrono::milliseconds::zero()) {
    delays_[request.path] = delay;
  } else {
    delays_.erase(request.path);
  }
}

void PpsManager::ClearFaults() {
  delays_.clear();
  mute_ = false;
  SetStalled(false);
}

std::chrono::milliseconds PpsManager::Delay(const std::string& rest) {
  if (delays_.empty()) return std::chrono::milliseconds::zero();
  PpsRequest request;
  if (ParsePpsRequest(rest, &request) != 0) return std::chrono::milliseconds::zero();
  const auto delay = delays_.find(request.path);
  return delay == delays_.end() ? std::chrono::milliseconds::zero() : delay->second;
}

// --- requests -----------------------------------------------------------------------------------

int PpsManager::OnOpen(const std::string& rest, std::uint32_t flags,
                       std::unique_ptr<OpenFile>* file) {
  PpsRequest request;
  const int error = ParsePpsRequest(rest, &request);
  if (error != 0) return error;
  if ((flags & O_ACCMODE) == O_ACCMODE) return EINVAL;

  const int way = tree_.CheckWay(request.path);
  const bool create = (flags & O_CREAT) != 0;
  if (way != 0 && !(way == ENOENT && create)) return way;
  if (request.path.empty() || tree_.IsDirectory(request.path))
    return OpenDirectory(request, flags, file);
  return OpenObject(request, flags, file);
}

int PpsManager::OpenDirectory(const PpsRequest& request, std::uint32_t flags,
                              std::unique_ptr<OpenFile>* file) {
  if ((flags & O_DIRECTORY) == 0 || (flags & O_ACCMODE) != O_RDONLY || (flags & O_CREAT) != 0) {
    return EISDIR;
  }
  *file = std::make_unique<PpsFile>(flags, tree_.List(request.path));
  return 0;
}

int PpsManager::OpenObject(const PpsRequest& request, std::uint32_t flags,
                           std::unique_ptr<OpenFile>* file) {
  PpsObject* object = tree_.Find(request.path);
  const bool create = (flags & O_CREAT) != 0;
  if (object == nullptr && !create) return ENOENT;
  if (object == nullptr && request.directory_only) return EISDIR;
  if (object != nullptr && (request.directory_only || (flags & O_DIRECTORY) != 0)) return ENOTDIR;
  if (object != nullptr && create && (flags & O_EXCL) != 0) return EEXIST;
  if (request.options.server && object != nullptr && object->server != nullptr) return EBUSY;

  if (object == nullptr) object = tree_.Create(request.path);
  if (object == nullptr) return ENOSPC;
  auto opened = std::make_unique<PpsFile>(flags, request.options, object, ++last_id_);
  if ((flags & O_TRUNC) != 0 && object->server == nullptr) Truncate(object, opened.get());
  object->files.insert(opened.get());
  *file = std::move(opened);
  return 0;
}

void PpsManager::OnOpened(OpenFile* opened) {
  PpsFile* const file = AsPps(opened);
  PpsObject* const object = file->object();
  if (object == nullptr) {
    if (!file->listing().empty()) file->Send(file->listing());
    file->EndOfFile();
    return;
  }
  if (file->options().server) {
    BecomeServer(file);
    return;
  }
  if (object->server != nullptr) {
    object->server->SendMessage(Share("+@" + file->Address() + "\n"));
    return;
  }
  if (!file->CanRead() || mute_) return;
  file->Send(TextOf(object));
  if (!file->Follows()) file->EndOfFile();
}

void PpsManager::BecomeServer(PpsFile* server) {
  PpsObject* const object = server->object();
  object->server = server;
  for (PpsFile* const client : object->files) {
    if (client != server) server->SendMessage(Share("+@" + client->Address() + "\n"));
  }
}

int PpsManager::OnAccess(const std::string& rest, std::uint32_t) {
  PpsRequest request;
  const int error = ParsePpsRequest(rest, &request);
  if (error != 0) return error;
  const int way = tree_.CheckWay(request.path);
  if (way != 0) return way;
  if (request.path.empty() || tree_.IsDirectory(request.path)) return 0;
  if (tree_.Find(request.path) == nullptr) return ENOENT;
  return request.directory_only ? ENOTDIR : 0;
}

int PpsManager::OnUnlink(const std::string& rest) {
  PpsRequest request;
  const int error = ParsePpsRequest(rest, &request);
  if (error != 0) return error;
  const int way = tree_.CheckWay(request.path);
  if (way != 0) return way;
  if (request.path.empty()) return EBUSY;
  if (tree_.IsDirectory(request.path)) {
    if (!tree_.List(request.path).empty()) return ENOTEMPTY;
    tree_.Remove(request.path);
    return 0;
  }
  PpsObject* const object = tree_.Find(request.path);
  if (object == nullptr) return ENOENT;
  if (request.directory_only) return ENOTDIR;
  for (PpsFile* const file : object->files) file->Orphan();
  tree_.Remove(request.path);
  return 0;
}

void PpsManager::OnClosed(OpenFile* closed) {
  PpsFile* const file = AsPps(closed);
  PpsObject* const object = file->object();
  if (object == nullptr) return;
  object->files.erase(file);
  if (object->server == file) {
    object->server = nullptr;  // the clients stay, and are plain ones again
  } else if (object->server != nullptr) {
    object->server->SendMessage(Share("-@" + file->Address() + "\n"));
  }
}

// --- writes -------------------------------------------------------------------------------------

void PpsManager::OnMessage(OpenFile* written, const std::string& message) {
  PpsFile* const file = AsPps(written);
  PpsObject* const object = file->object();
  if (object == nullptr || message.empty()) return;
  if (!file->CanWrite()) {
    Log(_SLOG_WARNING, "pps: write to '%s', which was opened for reading only",
        object->name.c_str());
    return;
  }
  PpsText parsed;
  const std::size_t bad_line = ParsePpsText(message, &parsed);
  if (bad_line != 0) {
    Log(_SLOG_WARNING, "pps: write of %zu bytes to '%s' refused: line %zu is no PPS line",
        message.size(), object->name.c_str(), bad_line);
    return;
  }
  if (object->server == nullptr) {
    if (Write(object, std::move(parsed), file)) return;
    Log(_SLOG_ERROR, "pps: write of %zu bytes refused: '%s' would become too large", message.size(),
        object->name.c_str());
  } else if (object->server == file) {
    WriteToClients(file, parsed);
  } else {
    WriteToServer(file, parsed);
  }
}

bool PpsManager::Write(PpsObject* object, PpsText text, const PpsFile* writer) {
  std::size_t growth = 0;
  for (const PpsChange& change : text.changes) {
    growth += change.options.size() + change.name.size() + change.value.size();
  }
  if (object->size + growth > kLargestObject) return false;
  if (text.has_head_options) {
    object->options.assign(text.head_options);
    object->text.reset();
  }
  Apply(object, std::move(text.changes), writer);
  return true;
}

void PpsManager::Apply(PpsObject* object, std::vector<PpsChange> changes, const PpsFile* writer) {
  PpsAttributes* const attributes = &object->attributes;
  auto present = attributes->begin();  // mostly the one behind the last change
  const auto changes_nothing = [&](const PpsChange& change) {
    if (present == attributes->end() || present->first != change.name) {
      present = attributes->find(change.name);
    }
    if (present == attributes->end() && change.deleted) return true;
    if (present == attributes->end()) {
      present = attributes->emplace(change.name, PpsAttribute()).first;
      object->size += change.name.size();
    }
    PpsAttribute* const attribute = &present->second;
    object->size -= attribute->options.size() + attribute->value.size();
    if (change.deleted) {
      object->size -= present->first.size();
      present = attributes->erase(present);
    } else {
      if (change.has_options) attribute->options.assign(change.options);
      attribute->value.assign(change.value);
      object->size += attribute->options.size() + attribute->value.size();
      ++present;
    }
    return false;
  };
  changes.erase(std::remove_if(changes.begin(), changes.end(), changes_nothing), changes.end());
  if (changes.empty()) return;
  object->text.reset();
  ObjectChange change(object, changes);
  for (PpsFile* const file : object->files) {
    if (file != writer && file->Follows()) file->SendChange(&change);
  }
}

void PpsManager::Truncate(PpsObject* object, const PpsFile* writer) {
  if (object->attributes.empty()) return;
  std::string text;
  for (const auto& attribute : object->attributes) text += "-" + attribute.first + "\n";
  PpsText deletions;
  ParsePpsText(text, &deletions);
  Apply(object, std::move(deletions.changes), writer);
}

void PpsManager::WriteToServer(PpsFile* client, const PpsText& text) {
  client->object()->server->SendMessage(FormatPpsMessage(client->Address(), text.changes));
}

void PpsManager::WriteToClients(PpsFile* server, const PpsText& text) {
  PpsObject* const object = server->object();
  const SharedText message = FormatPpsMessage(object->name, text.changes);
  const bool to_all = text.head == object->name;
  bool delivered = to_all && text.has_head;
  for (PpsFile* const client : object->files) {
    if (client == server || !text.has_head || (!to_all && client->Address() != text.head)) continue;
    if (client->CanRead()) client->SendMessage(message);
    delivered = true;
  }
  if (!delivered) {
    Log(_SLOG_WARNING, "pps: the server of '%s' wrote to '@%s', which is not its client",
        object->name.c_str(), std::string(text.head).c_str());
  }
}

}  // namespace headunit
