#include "headunit/unit.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <system_error>
#include <utility>

#include "event_loop.h"
#include "log.h"
#include "mcu_device.h"
#include "platform/slog_ring.h"
#include "pps_manager.h"
#include "profile.h"
#include "unique_fd.h"
#include "wire/at_packet.h"
#include "wire/bench_link.h"

namespace headunit {
namespace {

namespace fs = std::filesystem;

const char kPpsPath[] = "/pps";
const char kStateFolder[] = "/var/headunit";
const char kInstalledProfile[] =
    "../share/korvandis/profiles/default";  // from the program's folder

}  // namespace

std::string DefaultProfile() {
  std::error_code error;
  const fs::path program = fs::read_symlink("/proc/self/exe", error);
  const fs::path installed = (program.parent_path() / kInstalledProfile).lexically_normal();
  if (!error && fs::is_directory(installed, error)) return installed.string();
  const fs::path source = fs::path(KORVANDIS_SOURCE_PROFILES) / "default";
  return fs::is_directory(source, error) ? source.string() : "";
}

struct Unit::Impl {
  explicit Impl(UnitOptions given)
      : options(std::move(given)),
        pps(&managers, options.root + kPpsPath),
        mcu(&managers, options.root + wire::kMcuDevicePath),
        stations(&managers, options.root + wire::kStationPath, &mcu) {
    if (options.state.empty()) options.state = options.root + kStateFolder;
    mcu.SetPresence([this](std::size_t openers) { OnPresence(openers); });
  }

  std::string TakeRoot();
  std::string LayOut();
  std::string BindAll();
  void CloseAll();
  void OnPresence(std::size_t openers);

  UnitOptions options;
  UniqueFd lock;  // on the root, held while the unit runs
  EventLoop managers;
  PpsManager pps;
  McuDevice mcu;
  StationConnector stations;

  std::mutex mutex;  // guards service_openers
  std::condition_variable service_changed;
  std::size_t service_openers = 0;
};

// Creates the root and makes sure that no other unit runs below it. The kernel gives the lock back
// however a unit ends.
std::string Unit::Impl::TakeRoot() {
  if (options.root.empty()) return "no root given";
  std::error_code error;
  fs::create_directories(options.root, error);
  if (!error && fs::equivalent(options.root, "/", error)) {
    return "the root must not be the host's own '/'";
  }
  if (error) return options.root + ": " + error.message();
  lock.Reset(open(options.root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!lock.valid()) return options.root + ": " + std::strerror(errno);
  if (flock(lock.get(), LOCK_EX | LOCK_NB) != 0) {
    return options.root + ": " +
           (errno == EWOULDBLOCK ? "another unit runs below it" : std::strerror(errno));
  }
  return "";
}

std::string Unit::Impl::LayOut() {
  std::error_code error;
  fs::create_directories(options.root + "/dev", error);
  if (!error) fs::create_directories(options.state, error);
  if (error) return options.root + ": " + error.message();
  const int result =
      platform::CreateSlogRing(options.root + platform::kSlogPath, options.log_lines);
  if (result != 0) return options.root + platform::kSlogPath + ": " + std::strerror(result);
  if (options.profile.empty()) return "";
  const std::string failure = LoadObjects(options.profile, &pps);
  return failure.empty() ? InstallFiles(options.profile, options.root) : failure;
}

std::string Unit::Impl::BindAll() {
  ResourceManager* const all[] = {&pps, &mcu, &stations};
  for (ResourceManager* const manager : all) {
    const std::string failure = manager->Bind();
    if (!failure.empty()) return failure;
  }
  return managers.Start();
}

void Unit::Impl::CloseAll() {
  managers.Stop();
  stations.Close();
  mcu.Close();
  pps.Close();
  lock.Reset();
}

void Unit::Impl::OnPresence(std::size_t openers) {
  if (openers == 0) stations.ForgetRequests();
  const std::lock_guard<std::mutex> guard(mutex);
  service_openers = openers;
  service_changed.notify_all();
}

Unit::Unit(UnitOptions options) : impl_(std::make_unique<Impl>(std::move(options))) {}

Unit::~Unit() { Stop(); }

std::string Unit::Start() {
  std::string failure = impl_->TakeRoot();
  if (failure.empty()) failure = impl_->LayOut();
  if (failure.empty()) failure = impl_->BindAll();
  if (!failure.empty()) impl_->CloseAll();
  return failure;
}

void Unit::Stop() { impl_->CloseAll(); }

std::string Unit::Control(const std::string&) { return "error no control yet"; }

bool Unit::WaitForService(std::chrono::milliseconds timeout) {
  std::unique_lock<std::mutex> guard(impl_->mutex);
  return impl_->service_changed.wait_for(guard, timeout,
                                         [this] { return impl_->service_openers > 0; });
}

}  // namespace headunit
