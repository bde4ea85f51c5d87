// The objects of the PPS manager and the directories that hold them.
#ifndef KORVANDIS_HEADUNIT_PPS_TREE_H
#define KORVANDIS_HEADUNIT_PPS_TREE_H

#include <cstddef>
#include <map>
#include <memory>
#include <set>
#include <string>

#include "outbox.h"
#include "pps_text.h"

namespace headunit {

class PpsFile;

struct PpsObject {
  std::string name;     // last component of the path
  std::string options;  // in square brackets in front of the name, empty: none
  PpsAttributes attributes;
  std::size_t size = 0;  // bytes of the attributes' names, options and values
  SharedText text;       // what a reader gets; null: to be formed again
  std::set<PpsFile*> files;
  PpsFile* server = nullptr;
};

// The object's whole text, formed anew when it changed.
const SharedText& TextOf(PpsObject* object);

// All paths are normalised: "/zelmar/system/key", the root is "".
class PpsTree {
 public:
  // 0 when every component of `path` but the last is a directory, else ENOTDIR or ENOENT.
  int CheckWay(const std::string& path) const;

  bool IsDirectory(const std::string& path) const { return directories_.count(path) != 0; }
  PpsObject* Find(const std::string& path) const;

  // The object, made with the directories above it when it is missing. Null when there are too
  // many.
  PpsObject* Create(const std::string& path);

  // An object, or an empty directory.
  void Remove(const std::string& path);

  // The entries of a directory, one a line, directories with a slash behind.
  std::string List(const std::string& path) const;

  std::size_t objects() const { return objects_.size(); }

  // Calls visit(path, object) for each object.
  template <typename Visit>
  void ForEach(Visit visit) const {
    for (const auto& entry : objects_) visit(entry.first, *entry.second);
  }

 private:
  std::map<std::string, std::unique_ptr<PpsObject>> objects_;
  std::set<std::string> directories_;  // without the root
};

}  // namespace headunit

#endif  // KORVANDIS_HEADUNIT_PPS_TREE_H
