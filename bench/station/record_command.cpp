// `station record` and `station replay`.
#include <algorithm>
#include <chrono>
#include <cstdint>

#include "builtin.h"
#include "files.h"
#include "output_file.h"
#include "records/database.h"
#include "station/link.h"
#include "station/packet_text.h"
#include "station/recording.h"

namespace station {
namespace {

const double kLongestPause = 5;  // seconds between two requests, whatever was recorded
const std::chrono::milliseconds kPatience(500);
const int kAskAgainMilliseconds = 50;
const int kLateReplyMilliseconds = 200;  // for a reply where none was recorded
const int kLastPacketMilliseconds = 50;  // for what had passed before an interruption

// Plays the requests of a recording and compares the answers.
class Replay {
 public:
  Replay(Context& context, tools::Interrupt* interrupt)
      : context_(context), interrupt_(interrupt), link_(interrupt) {}

  int Run(const std::vector<RecordedExchange>& exchanges) {
    const bool fast = context_.invocation.Has("--fast");
    for (std::size_t i = 0; i < exchanges.size(); ++i) {
      if (i > 0 && !fast) {
        Pause(exchanges[i].nanoseconds, exchanges[i - 1].nanoseconds);
      }
      const std::string problem =
          interrupt_->Pending() ? "interrupted" : link_.Send(exchanges[i].request);
      if (!problem.empty()) return Complain(context_, problem);
      number_ = i + 1;
      // The same question several times in a row waits for something: the last answer counts.
      const bool polled =
          i + 1 < exchanges.size() && exchanges[i + 1].request == exchanges[i].request;
      if (!Compare(exchanges[i], polled)) return Complain(context_, "the unit is gone");
      if (interrupt_->Pending()) return Complain(context_, "interrupted");
      ReportUnexpected();
    }
    link_.Collect(kLateReplyMilliseconds);
    ReportUnexpected();
    if (!differing_.empty()) context_.out << "\nDifferences:\n" << differing_ << '\n';
    if (moved_) {
      context_.out << "Positions, speeds and satellites change from moment to moment: '--ignore "
                      "gps' does not "
                      "compare them.\n";
    }
    context_.out << exchanges.size() << " requests, " << compared_ << " answers compared, "
                 << differences_ << " differ\n";
    return differences_ == 0 ? tools::kExitRight : tools::kExitWrong;
  }

 private:
  void Pause(std::uint64_t now, std::uint64_t before) {
    const double gap = now > before ? static_cast<double>(now - before) * 1e-9 : 0;
    interrupt_->Wait(-1, static_cast<int>(std::min(gap, kLongestPause) * 1000));
  }

  // False when the unit is gone. Interrupted, it compares nothing.
  bool Compare(const RecordedExchange& exchange, bool polled) {
    const std::string request = DescribePacket(qnx::Direction::kToService, exchange.request);
    wire::Reply recorded;
    if (!wire::ParseReply(exchange.reply, &recorded)) {
      std::string reason;
      if (CountServices(&reason) == 0) {
        Differs(request, "                 now       no service is connected\n");
      } else {
        Line("sent", request);
      }
      return true;
    }
    // A write may take effect a moment later: after another answer the question is repeated.
    const auto patience = Clock::now() + kPatience;
    const bool ignored = polled || Ignored(request);
    wire::Reply reply;
    Bytes packet;
    while (true) {
      packet.clear();
      const Link::Result result =
          link_.Receive(recorded.command, recorded.sub_command,
                        Clock::now() + Seconds(context_.timeout), &reply, &packet);
      if (result == Link::Result::kGone) return false;
      const bool same = result == Link::Result::kReply && reply.data == recorded.data;
      if (!same && interrupt_->Pending()) return true;
      if (ignored || same) {
        compared_ += ignored ? 0 : 1;
        Line(ignored ? (polled ? "polled" : "ignored") : "same", request);
        return true;
      }
      if (result != Link::Result::kReply || Clock::now() >= patience) break;
      interrupt_->Wait(-1, kAskAgainMilliseconds);
      if (!link_.Send(exchange.request).empty()) return false;
    }
    ++compared_;
    Differs(request, "                 recorded  " + Shown(exchange.reply) +
                         "\n                 now       " + Shown(packet) + "\n");
    return true;
  }

  // A reply as its meaning and its bytes behind the header.
  static std::string Shown(const Bytes& packet) {
    if (packet.empty()) return "no answer";
    const std::size_t skipped = LinkOffset(packet);
    return DescribePacket(qnx::Direction::kFromService, packet) + " [" +
           Hex(packet.data() + skipped, packet.size() - skipped) + "]";
  }

  // Replies that came although none was recorded.
  void ReportUnexpected() {
    for (const Bytes& packet : link_.TakeDiscarded()) {
      const std::string text = DescribePacket(qnx::Direction::kFromService, packet);
      if (Ignored(text)) continue;
      Differs("an answer that was not recorded: " + text, "");
    }
  }

  bool Ignored(const std::string& text) const {
    const auto range = context_.invocation.options.equal_range("--ignore");
    return std::any_of(range.first, range.second,
                       [&](const auto& option) { return text.rfind(option.second, 0) == 0; });
  }

  void Line(const char* verdict, const std::string& text) {
    context_.out << Head(verdict) << text << std::endl;
  }

  std::string Head(const char* verdict) const {
    return qnx::Formatted("%5zu  %-8s  ", number_, verdict);
  }

  // Tells a difference now, and keeps it for the end.
  void Differs(const std::string& text, const std::string& details) {
    ++differences_;
    moved_ = moved_ || text.rfind("gps ", 0) == 0;
    const std::string lines = Head("DIFFERS") + text + "\n" + details;
    differing_ += lines;
    context_.out << lines << std::flush;
  }

  Context& context_;
  tools::Interrupt* interrupt_;
  Link link_;
  std::size_t number_ = 0;
  int compared_ = 0;
  int differences_ = 0;
  std::string differing_;
  bool moved_ = false;
};

std::uint64_t NanosecondsSinceEpoch() {
  return static_cast<std::uint64_t>(records::Nanoseconds(std::chrono::system_clock::now()));
}

}  // namespace

int RecordTraffic(Context& context) {
  const std::string& path = context.invocation.arguments[0];
  const auto format =
      context.invocation.Has("--pcap") ? RecordingFormat::kPcap : RecordingFormat::kText;
  tools::Interrupt interrupt;
  Monitor monitor;
  const std::string problem = monitor.Open();
  if (!problem.empty()) return Complain(context, problem);
  OutputFile file(&interrupt);
  std::string failed = file.Open(path, context.invocation.Has("--force"));
  if (failed.empty()) failed = file.Write(RecordingHead(format));
  std::size_t count = 0;
  bool lost = false;
  bool gone = false;
  std::uint64_t end = UINT64_MAX;  // of the recording: the interruption, once it came
  while (failed.empty()) {
    if (end == UINT64_MAX && !interrupt.Wait(monitor.fd(), -1)) end = NanosecondsSinceEpoch();
    if (end != UINT64_MAX && !monitor.HasPacket(kLastPacketMilliseconds)) break;
    qnx::MonitorHead head{};
    RecordedPacket packet{};
    gone = !monitor.Read(&head, &packet.packet);
    if (gone || head.nanoseconds > end) break;
    if (head.direction == qnx::kMonitorLost) {
      lost = true;
      if (format == RecordingFormat::kText) failed = file.Write("# packets lost here\n");
    }
    if (head.direction > 1 || packet.packet.empty()) continue;
    packet.nanoseconds = head.nanoseconds;
    packet.direction = static_cast<qnx::Direction>(head.direction);
    failed = file.Write(RecordingEntry(format, packet));
    if (failed.empty()) ++count;
  }
  if (!failed.empty()) return Complain(context, failed);
  context.out << count << " packets in " << tools::Escape(path) << '\n';
  if (lost) return Complain(context, "packets lost: the recorder fell behind");
  if (gone) return Complain(context, "the unit is gone");
  return tools::kExitRight;
}

int ReplayTraffic(Context& context) {
  const auto ignored = context.invocation.options.equal_range("--ignore");
  for (auto option = ignored.first; option != ignored.second; ++option) {
    if (option->second.empty()) return UsageError(context, "--ignore needs a command, not ''");
  }
  const std::string& path = context.invocation.arguments[0];
  std::string text;
  std::string problem = ReadFile(path, &text);
  std::vector<RecordedPacket> packets;
  std::string cut;
  if (problem.empty()) {
    problem = ParseRecording(text, &packets, &cut);
    if (!problem.empty()) problem = tools::Quoted(path) + ": " + problem;
  }
  if (!problem.empty()) return UsageError(context, problem);
  if (!cut.empty())
    context.err << "station: replay: " << tools::Quoted(path) << ": " << cut << '\n';
  const std::vector<RecordedExchange> exchanges = PairExchanges(packets);
  if (exchanges.empty()) return Complain(context, tools::Quoted(path) + " holds no requests");
  tools::Interrupt interrupt;
  return Replay(context, &interrupt).Run(exchanges);
}

}  // namespace station
