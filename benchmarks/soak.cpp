// Mixed packets, valid and hostile, against the service and a whole unit, while now and then the
// PPS manager restarts, the service is stopped and continued, and its standard error is not read:
// the rate, and what both hold in memory, descriptors and threads after a tenth of the packets and
// at the end, which must be equal.
//
// Usage: soak [PACKETS [SEED]]. The packets are drawn once and sent again and again, so whatever
// they leave behind in the unit's objects is there after the first tenth, and what grows behind it
// is lost. Exit status 1 when something grows.
#include <sys/stat.h>

#include <atomic>
#include <random>

#include "requests.h"
#include "setup.h"

namespace {

const long kPackets = 1000000;
const long kRounds = 50;          // how often each packet is sent
const long kBatch = 64;           // packets in front of a question that shows that all are done
const double kMemoryGoal = 4096;  // KiB

// One in each round. They take turns, so the first tenth has each of them.
enum Trouble { kPpsRestart, kStopAndContinue, kUndrained, kTroubles };
const long kTroubleBatches = 5;  // for as long it goes on
const int kPipe = 4096;          // bytes of standard error that wait, full after a few packets

// Descriptors must be equal exactly. So must memory in use, to these many KiB: a buffer that once
// took the longest message, or a queue that was once longer, is no leak. In a million packets a
// leak of a byte in a dozen packets shows.
//
// In use is what the service has allocated, in whole pages (its code is resident beside it, page
// by page as it is used), and what the unit's heap says. The unit's resident
// memory also has the queues of services that lagged behind: freed, but strewn with blocks in use
// that hold their pages.
const long kSameMemory = 64;

using Random = std::mt19937;

unsigned Below(Random* random, unsigned limit) {
  return static_cast<unsigned>((*random)() % limit);
}

setup::Bytes RandomBytes(Random* random, std::size_t size) {
  setup::Bytes bytes(size);
  for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>((*random)());
  return bytes;
}

setup::Bytes Text(const char* text) { return setup::Bytes(text, text + std::strlen(text)); }

// --- packets ------------------------------------------------------------------------------------

const setup::Bytes kCalibration = wire::BuildRequest(setup::kKeyCommand, 4, {});

// Any row of the table but the calibration.
const wire::CommandSpec& AnyCommand(Random* random) {
  for (;;) {
    const auto& row = wire::kCommands[Below(random, static_cast<unsigned>(wire::kCommandCount))];
    if (row.command != setup::kKeyCommand) return row;
  }
}

setup::Bytes ValidPacket(Random* random) {
  const wire::CommandSpec& row = AnyCommand(random);
  return setup::RequestOf(row, Below(random, 256));
}

// A command with any parameters, and text that means something to a command that reads it.
setup::Bytes WildPacket(Random* random) {
  static const char* const kTexts[] = {
      "a\nb:n:1", "x::y\nz",  "@control\nmsg::location", "%s%n%d",          "-mac",
      "\n\n:::",  "\"\\{[}]", "command:json:{\"a\":",    "\xff\xfe\xc0\x80"};
  setup::Bytes parameters =
      RandomBytes(random, Below(random, 2) == 0 ? Below(random, 8) : Below(random, 255));
  if (Below(random, 2) == 0)
    parameters = Text(kTexts[Below(random, static_cast<unsigned>(std::size(kTexts)))]);
  const std::uint8_t command = AnyCommand(random).command;
  const unsigned sub_command = Below(random, 4) == 0 ? Below(random, setup::kNoVersion)
                                                     : Below(random, 30);  // not the question
  return wire::BuildRequest(command, static_cast<std::uint8_t>(sub_command), parameters);
}

// A packet that breaks the format: cut, with wrong lengths, of another type, for no command, or any
// bytes at all.
setup::Bytes BrokenPacket(Random* random) {
  setup::Bytes packet = WildPacket(random);
  const std::size_t record = wire::kHeaderSize + wire::kLinkSize;
  switch (Below(random, 7)) {
    case 0:
      packet.resize(1 + Below(random, static_cast<unsigned>(packet.size())));
      break;
    case 1:
      packet[record + wire::kRecordLengthOffset] = static_cast<std::uint8_t>((*random)());
      break;
    case 2:
      wire::StoreLe32(&packet[wire::kPayloadLengthOffset], static_cast<std::uint32_t>((*random)()));
      break;
    case 3:
      wire::StoreLe32(&packet[wire::kPacketTypeOffset], static_cast<std::uint32_t>((*random)()));
      break;
    case 4:
      packet[record + wire::kRecordCommandOffset] =
          static_cast<std::uint8_t>(14 + Below(random, 242));
      break;
    case 5:
      packet.resize(packet.size() + Below(random, Below(random, 100) == 0 ? 60000 : 200));
      break;
    default:
      packet = RandomBytes(random, 1 + Below(random, 400));
      break;
  }
  return packet;
}

std::vector<setup::Bytes> DrawPackets(long count, unsigned seed) {
  Random random(seed);
  std::vector<setup::Bytes> packets;
  for (long i = 0; i < count; ++i) {
    const unsigned kind = Below(&random, 100);
    packets.push_back(kind < 60   ? ValidPacket(&random)
                      : kind < 80 ? WildPacket(&random)
                                  : BrokenPacket(&random));
  }
  packets.back() = kCalibration;
  return packets;
}

// --- the run ------------------------------------------------------------------------------------

struct Held {
  long resident;  // KiB
  long in_use;    // KiB
  int descriptors;
  int threads;
};

Held Look(const setup::Process& process) {
  return {process.Memory("Rss"), process.Memory("Anonymous"), process.Descriptors(),
          process.Threads()};
}

// Asks the unit itself, which gives back first what it can.
Held Look(const setup::Unit& unit) {
  static const char kAnswer[] = "ok heap ";
  const std::string answer = unit.Ask("memory");
  if (answer.compare(0, std::strlen(kAnswer), kAnswer) != 0) setup::Fail(answer);
  Held held = Look(unit.process());
  const std::string bytes = answer.substr(std::strlen(kAnswer));
  if (!qnx::ParseNumber(bytes, 0, LONG_MAX, &held.in_use)) setup::Fail(answer);
  held.in_use /= 1024;
  return held;
}

// The services behind the objects may still be at work when the service has answered. One position
// a second goes on.
void AwaitIdle(const setup::Process& process) {
  const double kIdle = 0.002;  // seconds of processor time
  for (int i = 0; i < 100; ++i) {
    const double before = process.ProcessorTime();
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    if (process.ProcessorTime() - before < kIdle) return;
  }
  setup::Fail("the unit does not come to rest");
}

// The service's standard error: a pipe that is read, or not for a while.
class Errors {
 public:
  explicit Errors(std::string path) : path_(std::move(path)) {
    if (::mkfifo(path_.c_str(), 0600) != 0) setup::Fail("no pipe " + path_);
    pipe_.Reset(::open(path_.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
    ::fcntl(pipe_.Get(), F_SETPIPE_SZ, kPipe);
    reader_ = std::thread([this] {
      std::vector<char> bytes(1 << 16);
      while (!ends_) {
        if (drained_ && ::read(pipe_.Get(), bytes.data(), bytes.size()) > 0) continue;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
      }
    });
  }
  ~Errors() {
    ends_ = true;
    reader_.join();
  }
  Errors(const Errors&) = delete;
  Errors& operator=(const Errors&) = delete;

  const std::string& path() const { return path_; }
  void SetDrained(bool drained) { drained_ = drained; }

 private:
  const std::string path_;
  platform::Descriptor pipe_;
  std::atomic<bool> drained_{true};
  std::atomic<bool> ends_{false};
  std::thread reader_;
};

class Soak {
 public:
  // `round` is how many packets there are, each sent once in a round.
  Soak(const setup::Unit& unit, const setup::Process& service, Errors* errors, long round)
      : unit_(unit), service_(service), errors_(errors), batches_(round / kBatch) {}

  // Sends packets in their order until there were `count` in all, and returns when all are done.
  void SendUntil(const std::vector<setup::Bytes>& packets, long count) {
    while (next_ < count) {
      const long batch = next_ / kBatch;
      if (next_ % kBatch == 0 && batch % batches_ == batches_ / 2) {
        Begin(static_cast<Trouble>(batch / batches_ % kTroubles));
      }
      station_.Send(packets[static_cast<std::size_t>(next_) % packets.size()]);
      if (++next_ % kBatch == 0) Settle();
    }
    Settle();
  }

  // Looks at both once nothing is under way.
  std::pair<Held, Held> LookAtBoth() {
    End();
    Settle();
    AwaitIdle(unit_.process());
    return {Look(service_), Look(unit_)};
  }

 private:
  void Begin(Trouble trouble) {
    End();
    trouble_ = trouble;
    left_ = kTroubleBatches;
    if (trouble == kPpsRestart) Tell("pps down");
    if (trouble == kUndrained) errors_->SetDrained(false);
  }

  void End() {
    if (trouble_ == kPpsRestart) Tell("pps up");
    errors_->SetDrained(true);
    trouble_ = kTroubles;
  }

  void Tell(const char* line) const {
    const std::string answer = unit_.Ask(line);
    if (answer.compare(0, 2, "ok") != 0) setup::Fail(answer);
  }

  void Settle() {
    if (trouble_ == kStopAndContinue) {
      ::kill(service_.pid(), SIGSTOP);
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
      ::kill(service_.pid(), SIGCONT);
    }
    station_.Settle();
    if (trouble_ != kTroubles && --left_ == 0) End();
  }

  const setup::Unit& unit_;
  const setup::Process& service_;
  Errors* const errors_;
  const long batches_;  // of a round
  setup::Station station_;
  long next_ = 0;
  Trouble trouble_ = kTroubles;  // none
  long left_ = 0;                // batches until it ends
};

bool Compare(const char* who, const Held& before, const Held& after) {
  const bool same = after.descriptors == before.descriptors && after.threads == before.threads &&
                    after.in_use <= before.in_use + kSameMemory;
  const std::string text = qnx::Formatted(
      "%ld to %ld KiB in use, %ld to %ld resident, %d to %d descriptors, %d to %d threads",
      before.in_use, after.in_use, before.resident, after.resident, before.descriptors,
      after.descriptors, before.threads, after.threads);
  setup::Row(std::string("soak: what the ") + who + " holds at 10 % and at the end", text, "equal",
             same);
  return same;
}

int Run(int argc, char** argv) {
  const long packets = setup::Argument(argc, argv, 1, kPackets);
  const long seed = setup::Argument(argc, argv, 2, 1);
  const setup::Unit unit;
  // The calibration is over at once: its length is the script's, not the service's.
  std::ofstream(unit.root() + "/zmapps/etc/calib-recalibrate.sh") << "#!/bin/sh\n";
  Errors errors(unit.root() + "/errors");
  const setup::Process service(unit.root(), {setup::BinaryPath("korvandis")}, "/dev/null",
                               errors.path());
  unit.WaitForService(true);

  const long round = std::max(2 * kBatch * kTroubleBatches, packets / kRounds);
  const std::vector<setup::Bytes> drawn = DrawPackets(round, static_cast<unsigned>(seed));
  Soak soak(unit, service, &errors, round);
  const auto start = setup::Clock::now();
  std::vector<std::pair<Held, Held>> looks;
  for (long tenth = 1; tenth <= 10; ++tenth) {
    soak.SendUntil(drawn, packets * tenth / 10);
    looks.push_back(soak.LookAtBoth());
    const auto& [of_service, of_unit] = looks.back();
    std::fprintf(stderr, "%3ld %%: in use (resident): service %ld (%ld) KiB, unit %ld (%ld) KiB\n",
                 10 * tenth, of_service.in_use, of_service.resident, of_unit.in_use,
                 of_unit.resident);
  }
  const auto before = looks.front();
  const auto after = looks.back();
  const double seconds = setup::Seconds(setup::Clock::now() - start);

  setup::Row("soak: packets a second, " + std::to_string(packets) + " in all",
             setup::Number(static_cast<double>(packets) / seconds, 0), "", true);
  const bool service_same = Compare("service", before.first, after.first);
  const bool unit_same = Compare("unit", before.second, after.second);
  setup::Row("resident memory of the service after " + std::to_string(packets) + " packets",
             setup::Number(static_cast<double>(after.first.resident) / 1024, 2) + " MiB",
             "under 4 MiB", static_cast<double>(after.first.resident) < kMemoryGoal);
  return service_same && unit_same ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  return setup::Main([&] { return Run(argc, argv); });
}
