#include "run_keeper.h"

#include <algorithm>
#include <cstdlib>

#include "qnx/text.h"
#include "qnx/unit_root.h"
#include "records/spool.h"
#include "station/progress.h"

namespace station {
namespace {

// The newest packets of a run that are kept: a step may ask every half second for an hour.
const std::size_t kMostPackets = 20000;
// For what passed last.
const int kLastPacketMilliseconds = 50;

struct Identity {
  const char* words;
  const char* kind;
};
const Identity kIdentities[] = {{"serial", "serial"}, {"uuid", "uuid"}, {"bt mac", "mac"}};

records::Time FromNanoseconds(std::uint64_t nanoseconds) {
  return records::FromNanoseconds(static_cast<long long>(nanoseconds));
}

bool Passed(const records::Run& run) {
  return run.outcome == records::Outcome::kPassed &&
         CountSteps(run.phases, records::Outcome::kFailed) == 0;
}

}  // namespace

std::string RecordAddress(const Invocation& invocation) {
  const char* variable = std::getenv("KORVANDIS_RECORD");
  return invocation.Get("--record", variable == nullptr ? "" : variable);
}

RunKeeper::RunKeeper(Context& context, std::ostream& out, tools::Interrupt* interrupt)
    : context_(context),
      out_(out),
      address_(RecordAddress(context.invocation)),
      interrupt_(interrupt),
      patience_(interrupt, [this] { TellWait(); }) {}

std::string RunKeeper::Refuse(const Invocation& request, const records::Run& run) {
  if (address_.empty() || request.arguments.empty()) return "";
  const auto identity = std::find_if(
      std::begin(kIdentities), std::end(kIdentities),
      [&](const Identity& candidate) { return request.command->words == candidate.words; });
  if (identity == std::end(kIdentities)) return "";
  const bool allow = context_.invocation.Has("--allow-duplicate");
  if (run.device.empty()) {
    if (allow) return "";
    return "the sequence names no device, so the record cannot tell whether another one has this " +
           std::string(identity->kind);
  }
  std::string problem;
  if (database_ == nullptr) {
    database_ =
        records::Database::Open(address_, records::Database::Mode::kWrite, &problem, &patience_);
  }
  if (database_ != nullptr) {
    problem = database_->Claim(identity->kind, request.arguments[0], run.device, allow);
  } else {
    problem = "the record cannot be asked whether another device has this " +
              std::string(identity->kind) + ": " + problem;
  }
  return allow ? "" : problem;
}

bool RunKeeper::Keep(records::Run* run) {
  if (address_.empty()) return true;
  if (!Passed(*run)) {
    TakePackets(kLastPacketMilliseconds);
    run->packets = packets_;
    run->log = TakeLog();
  }
  database_.reset();
  patience_.Begin();
  interrupt_->Tolerate(run->outcome == records::Outcome::kAborted ? 1 : 0);
  const records::Stored stored = records::StoreRun(address_, *run, &patience_);
  interrupt_->Tolerate(0);
  if (!stored.problem.empty()) {
    context_.err << "station: run: " << (stored.stored ? "" : "not recorded: ") << stored.problem
                 << '\n';
  }
  if (!stored.stored) return false;
  out_ << "Recorded as run " << stored.number;
  if (stored.caught_up > 0) {
    out_ << ", with " << stored.caught_up << " that waited";
  }
  out_ << std::endl;
  return true;
}

void RunKeeper::TellWait() const {
  // The terminal may show the step under way on this line.
  context_.err << (ConsoleOf(context_.err).lines_change ? "\r\033[K" : "")
               << "station: run: waiting for the record "
               << qnx::Escape(records::WithoutPassword(address_)) << std::endl;
}

void RunKeeper::BeginRun(const records::Run& /*run*/, std::size_t /*steps*/) {
  if (address_.empty()) return;
  packets_.clear();
  monitors_ = monitor_.Open().empty();
  logs_ = log_.Open(qnx::UnitRoot() + qnx::kSlogPath) == 0;
  if (logs_) log_.SkipToEnd();
}

void RunKeeper::BeginStep(const records::Step& /*step*/) { TakePackets(0); }

void RunKeeper::EndStep(const records::Step& /*step*/, const std::string& /*answer*/) {
  TakePackets(0);
}

void RunKeeper::TakePackets(int milliseconds) {
  while (monitors_ && monitor_.HasPacket(milliseconds)) {
    qnx::MonitorHead head{};
    records::Packet packet;
    monitors_ = monitor_.Read(&head, &packet.bytes);
    if (!monitors_ || head.direction > 1 || packet.bytes.empty()) continue;
    packet.time = FromNanoseconds(head.nanoseconds);
    packet.from_service =
        static_cast<qnx::Direction>(head.direction) == qnx::Direction::kFromService;
    if (packets_.size() == kMostPackets) {
      packets_.erase(packets_.begin(), packets_.begin() + kMostPackets / 2);
    }
    packets_.push_back(packet);
  }
}

std::vector<records::LogLine> RunKeeper::TakeLog() {
  std::vector<records::LogLine> lines;
  while (logs_) {
    qnx::SlogLine line{};
    std::uint64_t lost = 0;
    const qnx::SlogReader::Result result = log_.Next(&line, &lost);
    if (result == qnx::SlogReader::Result::kNothing) break;
    records::LogLine kept;
    if (result != qnx::SlogReader::Result::kLine) {
      kept.text = result == qnx::SlogReader::Result::kLost
                      ? std::to_string(lost) + " lines were overwritten here"
                      : "a line that its writer did not finish";
      if (!lines.empty()) kept.time = lines.back().time;
    } else {
      kept.time = FromNanoseconds(line.nanoseconds);
      kept.code = line.opcode;
      kept.severity = static_cast<int>(line.severity);
      kept.process = line.pid;
      kept.text = line.text;
    }
    lines.push_back(kept);
  }
  return lines;
}

}  // namespace station
