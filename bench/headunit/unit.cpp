#include "headunit/unit.h"

#include <fcntl.h>
#include <sys/file.h>

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <system_error>
#include <utility>

#include "control_connector.h"
#include "control_table.h"
#include "event_loop.h"
#include "i2c_bus.h"
#include "log.h"
#include "mcu_device.h"
#include "platform/descriptor.h"
#include "pps_manager.h"
#include "profile.h"
#include "qnx/bench_link.h"
#include "qnx/slog_ring.h"
#include "qnx/unit_root.h"
#include "services/service_set.h"
#include "sysinfo_device.h"
#include "wire/at_packet.h"

namespace headunit {
namespace {

namespace fs = std::filesystem;

const char kPpsPath[] = "/pps";
const char kSysInfoPath[] = "/dev/sysinfo";
const char kI2cPath[] = "/dev/i2c4";
const char kSysInfoStore[] = "/sysinfo";  // in the state folder
const char kDrive[] = "/drive.txt";       // in the profile
const char kStateFolder[] = "/var/headunit";

}  // namespace

struct Unit::Impl {
  explicit Impl(UnitOptions given)
      : options(std::move(given)),
        pps(&managers, options.root + kPpsPath),
        mcu(&managers, options.root + wire::kMcuDevicePath),
        stations(&managers, options.root + qnx::kStationPath, &mcu),
        sysinfo(&managers, options.root + kSysInfoPath, State() + kSysInfoStore),
        i2c(&managers, options.root + kI2cPath),
        control_table(ControlledParts{&pps, &mcu, &stations, &sysinfo, &i2c, options.starts_service,
                                      nullptr}),
        control(&managers, options.root + qnx::kControlPath, &control_table) {
    mcu.SetPresence([this](std::size_t openers) { OnPresence(openers); });
  }

  std::string State() const {
    return options.state.empty() ? options.root + kStateFolder : options.state;
  }
  std::vector<ResourceManager*> All() { return {&pps, &mcu, &stations, &sysinfo, &i2c, &control}; }

  std::string TakeRoot();
  std::string LayOut();
  std::string BindAll();
  std::string StartServices();
  void StopAll();
  void OnPresence(std::size_t openers);

  const UnitOptions options;
  platform::Descriptor lock;  // on the root, held while the unit runs
  EventLoop managers;
  PpsManager pps;
  McuDevice mcu;
  StationConnector stations;
  SysInfoDevice sysinfo;
  I2cBus i2c;
  ControlTable control_table;
  ControlConnector control;
  std::unique_ptr<ServiceSet> services;
  std::atomic<bool> running{false};

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
  if (!lock.IsOpen()) return options.root + ": " + std::strerror(errno);
  if (flock(lock.Get(), LOCK_EX | LOCK_NB) != 0) {
    return options.root + ": " +
           (errno == EWOULDBLOCK ? "another unit runs below it" : std::strerror(errno));
  }
  return "";
}

std::string Unit::Impl::LayOut() {
  std::error_code error;
  fs::create_directories(options.root + "/dev", error);
  if (error) return options.root + "/dev: " + error.message();
  fs::create_directories(State(), error);
  if (error) return State() + ": " + error.message();
  const int result = qnx::CreateSlogRing(options.root + qnx::kSlogPath, options.log_lines);
  if (result != 0) return options.root + qnx::kSlogPath + ": " + std::strerror(result);
  std::string failure = sysinfo.Restore();
  if (options.profile.empty()) return failure;
  if (failure.empty()) failure = LoadObjects(options.profile, &pps);
  return failure.empty() ? InstallFiles(options.profile, options.root) : failure;
}

std::string Unit::Impl::BindAll() {
  for (ResourceManager* const manager : All()) {
    std::string failure = manager->Bind();
    if (!failure.empty()) return failure;
  }
  return managers.Start();
}

// The services are ordinary clients, which find the managers through the environment.
std::string Unit::Impl::StartServices() {
  if (!options.services) return "";
  if (options.root != qnx::UnitRoot()) {
    return std::string(qnx::kRootVariable) + " is not " + options.root + ": the services need it";
  }
  Drive drive;
  std::string text;
  const std::string path = options.profile + kDrive;
  if (!options.profile.empty() && ReadWholeFile(path, &text)) {
    const std::size_t bad_line = ParseDrive(text, &drive);
    if (bad_line != 0)
      return path + ": line " + std::to_string(bad_line) + " is not a line of a drive";
  }
  services = std::make_unique<ServiceSet>(std::move(drive));
  std::string failure = services->Start();
  if (failure.empty())
    managers.Call([this] { control_table.SetPositioning(services->positioning()); });
  return failure;
}

void Unit::Impl::StopAll() {
  managers.Call([this] {
    control_table.SetPositioning(nullptr);
    pps.ClearFaults();  // lets go of a service that waits for an answer
  });
  services.reset();
  managers.Stop();
  for (ResourceManager* const manager : All()) manager->Close();
  lock.Reset();
  running = false;
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
  if (impl_->running) return "the unit runs already";
  impl_ = std::make_unique<Impl>(impl_->options);  // nothing is left of an earlier run
  std::string failure = impl_->TakeRoot();
  if (failure.empty()) failure = impl_->LayOut();
  if (failure.empty()) failure = impl_->BindAll();
  if (failure.empty()) failure = impl_->StartServices();
  impl_->running = failure.empty();
  if (!failure.empty()) impl_->StopAll();
  return failure;
}

void Unit::Stop() { impl_->StopAll(); }

std::string Unit::Control(const std::string& line) {
  if (!impl_->running) return "error the unit does not run";
  std::string answer;
  impl_->managers.Call([&] { answer = impl_->control_table.Run(line); });
  return answer;
}

bool Unit::WaitForService(std::chrono::milliseconds timeout) {
  std::unique_lock<std::mutex> guard(impl_->mutex);
  return impl_->service_changed.wait_for(guard, timeout,
                                         [this] { return impl_->service_openers > 0; });
}

}  // namespace headunit
