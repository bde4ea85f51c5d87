#include "pps_tree.h"

#include <cerrno>
#include <utility>

#include "pps_path.h"

namespace headunit {
namespace {

const std::size_t kMostObjects = 65536;  // and directories: bounds what a runaway client can create

bool StartsWith(const std::string& text, const std::string& head) {
  return text.compare(0, head.size(), head) == 0;
}

}  // namespace

const SharedText& TextOf(PpsObject* object) {
  if (!object->text)
    object->text = Share(FormatPpsObject(object->name, object->options, object->attributes));
  return object->text;
}

int PpsTree::CheckWay(const std::string& path) const {
  for (std::size_t end = path.find('/', 1); end != std::string::npos;
       end = path.find('/', end + 1)) {
    const std::string above = path.substr(0, end);
    if (objects_.count(above) != 0) return ENOTDIR;
    if (!IsDirectory(above)) return ENOENT;
  }
  return 0;
}

PpsObject* PpsTree::Find(const std::string& path) const {
  const auto entry = objects_.find(path);
  return entry == objects_.end() ? nullptr : entry->second.get();
}

PpsObject* PpsTree::Create(const std::string& path) {
  if (PpsObject* const object = Find(path)) return object;
  if (objects_.size() >= kMostObjects || directories_.size() >= kMostObjects) return nullptr;
  for (std::string above = ParentOf(path); !above.empty(); above = ParentOf(above)) {
    directories_.insert(above);
  }
  auto object = std::make_unique<PpsObject>();
  object->name = NameOf(path);
  return (objects_[path] = std::move(object)).get();
}

std::string PpsTree::List(const std::string& path) const {
  const std::string head = path + "/";
  std::set<std::string> names;
  for (auto entry = directories_.lower_bound(head);
       entry != directories_.end() && StartsWith(*entry, head); ++entry) {
    if (entry->find('/', head.size()) == std::string::npos) {
      names.insert(entry->substr(head.size()) + "/");
    }
  }
  for (auto entry = objects_.lower_bound(head);
       entry != objects_.end() && StartsWith(entry->first, head); ++entry) {
    if (entry->first.find('/', head.size()) == std::string::npos) {
      names.insert(entry->first.substr(head.size()));
    }
  }
  std::string list;
  for (const std::string& name : names) list += name + "\n";
  return list;
}

void PpsTree::Remove(const std::string& path) {
  objects_.erase(path);
  directories_.erase(path);
}

}  // namespace headunit
