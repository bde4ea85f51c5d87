// The PPS manager: objects in memory, and the clients that have them open.
#ifndef KORVANDIS_HEADUNIT_PPS_MANAGER_H
#define KORVANDIS_HEADUNIT_PPS_MANAGER_H

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "open_file.h"
#include "pps_text.h"
#include "pps_tree.h"
#include "resource_manager.h"

namespace headunit {

class PpsFile;
struct PpsRequest;

class PpsManager : public ResourceManager {
 public:
  PpsManager(EventLoop* loop, std::string path);
  ~PpsManager() override;

  // Enters an object from its text. Returns an empty text or what is wrong with it.
  std::string Load(const std::string& path, const std::string& text);

  const PpsTree& tree() const { return tree_; }

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
  // Each returns 0 or an error number.
  int OpenObject(const PpsRequest& request, std::uint32_t flags, std::unique_ptr<OpenFile>* file);
  int OpenDirectory(const PpsRequest& request, std::uint32_t flags,
                    std::unique_ptr<OpenFile>* file);

  // Applies a whole write. False when the object would become too large; nothing is changed then.
  bool Write(PpsObject* object, PpsText text, const PpsFile* writer);
  void Apply(PpsObject* object, std::vector<PpsChange> changes, const PpsFile* writer);
  void Truncate(PpsObject* object, const PpsFile* writer);
  void WriteToServer(PpsFile* client, const PpsText& text);
  void WriteToClients(PpsFile* server, const PpsText& text);
  void BecomeServer(PpsFile* server);

  PpsTree tree_;
  std::map<std::string, std::chrono::milliseconds> delays_;
  std::uint64_t last_id_ = 0;
  bool mute_ = false;
};

}  // namespace headunit

#endif  // KORVANDIS_HEADUNIT_PPS_MANAGER_H
