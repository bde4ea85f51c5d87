// How fast the service starts, and how often it wakes up when there is nothing to do.
//
// Usage: footprint [STARTS [SECONDS]].
#include "setup.h"

namespace {

const double kStartGoal = 0.010;  // seconds

const bench::Bytes kQuery = wire::BuildRequest(7, 1, {});

// From before the fork to the first reply, in seconds. The unit is asked without pause whether the
// service has opened the MCU device, and the request is sent as soon as it has.
double TimeToFirstReply(const bench::Unit& unit) {
  bench::Station station;
  double time = 0;
  {
    const auto start = bench::Clock::now();
    const bench::Process service(unit.root(), {bench::BinaryPath("korvandis")});
    unit.WaitForService(true);
    station.Ask(kQuery);
    time = bench::Seconds(bench::Clock::now() - start);
  }
  unit.WaitForService(false);
  return time;
}

// Waits of all threads of the service a second, over `seconds` in which nobody asks it anything.
double WaitsPerSecond(const bench::Unit& unit, long seconds) {
  double waits = 0;
  {
    const bench::Process service(unit.root(), {bench::BinaryPath("korvandis")});
    unit.WaitForService(true);
    bench::Station().Ask(kQuery);
    std::this_thread::sleep_for(std::chrono::seconds(1));
    const double before = service.Waits();
    std::this_thread::sleep_for(std::chrono::seconds(seconds));
    waits = service.Waits() - before;
  }
  unit.WaitForService(false);
  return waits / static_cast<double>(seconds);
}

int Run(int argc, char** argv) {
  const long starts = bench::Argument(argc, argv, 1, 51);
  const long seconds = bench::Argument(argc, argv, 2, 5);
  {
    const bench::Unit unit;
    std::vector<double> times;
    for (long i = 0; i < starts; ++i) times.push_back(TimeToFirstReply(unit));
    const auto [least, most] = std::minmax_element(times.begin(), times.end());
    std::fprintf(stderr, "%ld starts: %.1f to %.1f ms\n", starts, *least * 1e3, *most * 1e3);
    const double time = bench::Median(times);
    bench::Row("start of the process to the first reply, median",
               bench::Number(time * 1e3, 1) + " ms", "under 10 ms", time < kStartGoal);
    // The unit sends a position a second, as it was asked to: that is work, not idleness.
    bench::Row("wake-ups a second with a position a second",
               bench::Number(WaitsPerSecond(unit, seconds), 1), "", true);
  }
  const bench::Unit silent({"--no-services"});
  const double waits = WaitsPerSecond(silent, seconds);
  bench::Row("wake-ups a second when idle", bench::Number(waits, 1), "0", waits == 0);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  return bench::Main([&] { return Run(argc, argv); });
}
