// The PPS manager: objects in memory, and who has them open.
#ifndef KORVANDIS_HEADUNIT_PPS_MANAGER_H
#define KORVANDIS_HEADUNIT_PPS_MANAGER_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "open_file.h"
#include "pps_text.h"
#include "resource_manager.h"

namespace headunit {

class PpsFile;

struct PpsObject {
  std::string name;  // last component of the path
  PpsAttributes attributes;
  std::size_t size = 0;  // bytes of the attributes' names and values
  SharedText text;       // what a reader gets; null: to be formed again
  std::set<PpsFile*> files;
  PpsFile* server = nullptr;
};

// Paths inside are normalised: "/zelmar/system/key", the root is "".
class PpsManager : public ResourceManager {
 public:
  PpsManager(EventLoop* loop, std::string path);
  ~PpsManager() override;

  // Enters an object from its text. Returns an empty text or what is wrong with it.
  std::string Load(const std::string& path, const std::string& text);

  // Calls visit(path, text without the object line) for each object.
  template <typename Visit>
  void ForEachObject(Visit visit) const {
    for (const auto& entry : objects_) visit(entry.first, entry.second->attributes);
  }

  std::size_t objects() const { return objects_.size(); }

  // Every answer to a request for the object `path` is held back so long; zero ends it.
  void SetDelay(const std::string& path, std::chrono::milliseconds delay);

  // While set, opens are granted and no text is sent at open.
  void SetMute(bool mute) { mute_ = mute; }

  // Clears all faults; open files stay open.
  void ClearFaults();

 protected:
  int OnOpen(const std::string& rest, std::uint32_t flags,
             std::unique_ptr<OpenFile>* file) override;
  void OnOpened(OpenFile* file) override;
  int OnAccess(const std::string& rest, std::uint32_t mode) override;
  int OnUnlink(const std::string& rest) override;
  void OnMessage(OpenFile* file, const std::string& message) override;
  void OnClosed(OpenFile* file) override;
  std::chrono::milliseconds Delay(const std::string& rest) override;

 private:
  struct Request;  // a path with its options

  // Each returns 0 or an error number.
  static int ParseRequest(const std::string& rest, Request* request);
  int CheckWay(const std::string& path) const;  // every component but the last is a directory
  int OpenObject(const Request& request, std::uint32_t flags, std::unique_ptr<OpenFile>* file);
  int OpenDirectory(const Request& request, std::uint32_t flags, std::unique_ptr<OpenFile>* file);

  bool IsDirectory(const std::string& path) const { return directories_.count(path) != 0; }
  PpsObject* FindObject(const std::string& path) const;
  PpsObject* CreateObject(const std::string& path);
  std::string ListDirectory(const std::string& path) const;

  // False when the object would become too large; nothing is changed then.
  bool Apply(PpsObject* object, std::vector<PpsChange> changes, const PpsFile* writer);
  void Truncate(PpsObject* object, const PpsFile* writer);
  void WriteToServer(PpsFile* client, const PpsText& text);
  void WriteToClients(PpsFile* server, const PpsText& text);
  void BecomeServer(PpsFile* server);

  std::map<std::string, std::unique_ptr<PpsObject>> objects_;
  std::set<std::string> directories_;  // without the root
  std::map<std::string, std::chrono::milliseconds> delays_;
  std::uint64_t last_id_ = 0;
  bool mute_ = false;
};

}  // namespace headunit

#endif  // KORVANDIS_HEADUNIT_PPS_MANAGER_H
