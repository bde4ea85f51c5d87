// How fast the service starts, and how often it wakes up when there is nothing to do.
//
// Usage: footprint [STARTS [SECONDS]].
#include "setup.h"

namespace {

const double kStartGoal = 0.010;  // seconds

// From before the fork to the first reply, in seconds. The unit is asked without pause whether the
// service has opened the MCU device, and the request is sent as soon as it has.
double TimeToFirstReply(const setup::Unit& unit) {
  setup::Station station;
  double time = 0;
  {
    const auto start = setup::Clock::now();
    const setup::Process service(unit.root(), {setup::BinaryPath("korvandis")});
    unit.WaitForService(true);
    station.Ask(setup::kVersionQuery);
    time = setup::Seconds(setup::Clock::now() - start);
  }
  unit.WaitForService(false);
  return time;
}

// Waits of all threads of the service a second, over `seconds` without a request.
double WaitsPerSecond(const setup::Unit& unit, long seconds) {
  double waits = 0;
  {
    const setup::Process service(unit.root(), {setup::BinaryPath("korvandis")});
    unit.WaitForService(true);
    setup::Station().Ask(setup::kVersionQuery);
    std::this_thread::sleep_for(std::chrono::seconds(1));
    const double before = service.Waits();
    std::this_thread::sleep_for(std::chrono::seconds(seconds));
    waits = service.Waits() - before;
  }
  unit.WaitForService(false);
  return waits / static_cast<double>(seconds);
}

int Run(int argc, char** argv) {
  const long starts = setup::Argument(argc, argv, 1, 51);
  const long seconds = setup::Argument(argc, argv, 2, 5);
  {
    const setup::Unit unit;
    std::vector<double> times;
    for (long i = 0; i < starts; ++i) times.push_back(TimeToFirstReply(unit));
    const auto [least, most] = std::minmax_element(times.begin(), times.end());
    std::fprintf(stderr, "%ld starts: %.1f to %.1f ms\n", starts, *least * 1e3, *most * 1e3);
    const double time = setup::Median(times);
    setup::Row("start of the process to the first reply, median",
               setup::Number(time * 1e3, 1) + " ms", "under 10 ms", time < kStartGoal);
    // The unit sends a position a second, as it was asked to: that is work, not idleness.
    setup::Row("wake-ups a second with a position a second",
               setup::Number(WaitsPerSecond(unit, seconds), 1), "", true);
  }
  const setup::Unit silent({"--no-services"});
  const double waits = WaitsPerSecond(silent, seconds);
  setup::Row("wake-ups a second when idle", setup::Number(waits, 1), "0", waits == 0);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  return setup::Main([&] { return Run(argc, argv); });
}
