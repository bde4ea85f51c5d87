#include "builtin.h"

#include <unistd.h>

#include <algorithm>
#include <iostream>

#include "station/packet_text.h"
#include "station/progress.h"
#include "station/requester.h"

namespace station {
namespace {

const double kDefaultWait = 10;    // seconds
const double kLongestTime = 3600;  // seconds
const int kWaitPause = 100;        // milliseconds between two looks for the service

std::string Padded(const std::string& text, std::size_t width) {
  return text.size() >= width ? text : text + std::string(width - text.size(), ' ');
}

Invocation Question(const Command& command) {
  Invocation invocation;
  invocation.command = &command;
  return invocation;
}

// Puts the option's value into *seconds when it is given; false, and says so, when it is wrong.
bool TakeSeconds(Context& context, const char* option, double least, double* seconds) {
  if (!context.invocation.Has(option)) return true;
  *seconds = qnx::ParseReal(context.invocation.Get(option));
  if (*seconds >= least && *seconds <= kLongestTime) return true;
  UsageError(context, qnx::Formatted("%s needs a number of seconds from %g to %g", option, least,
                                     kLongestTime));
  return false;
}

// True when the table has the command and no row of it has a reply.
bool IsSilent(std::uint8_t number, std::uint8_t sub_command) {
  bool known = false;
  for (const Command& command : Commands()) {
    const bool same =
        command.sent && command.number == number && command.sub_command == sub_command;
    known = known || same;
    if (same && command.reply != nullptr) return false;
  }
  return known;
}

}  // namespace

int Complain(Context& context, const std::string& problem) {
  context.err << "station: " << context.invocation.command->words << ": " << problem << '\n';
  return tools::kExitWrong;
}

int UsageError(Context& context, const std::string& problem) {
  const std::string& words = context.invocation.command->words;
  context.err << "station: " << words << ": " << problem << "; see 'station " << words
              << " --help'\n";
  return tools::kExitUsage;
}

int RunGroup(Context& context) {
  struct Row {
    std::string name, value, verdict;
    records::Outcome outcome;
  };
  const std::string& group = context.invocation.command->words;
  Requester requester(context.timeout, nullptr);
  std::vector<Row> rows;
  bool right = true;
  std::size_t name_width = 0;
  std::size_t value_width = 0;
  for (const Command* command : CommandsUnder(group)) {
    if (!command->sent || command->reply == nullptr || !command->parameters.empty()) continue;
    const Exchange exchange = requester.Perform(Question(*command), false);
    if (exchange.outcome == Exchange::Outcome::kUnreachable) {
      return Complain(context, exchange.problem);
    }
    // After one silence all others are likely silent: each would take the whole time limit.
    if (exchange.outcome == Exchange::Outcome::kUnanswered && rows.empty()) {
      return Complain(context, exchange.problem);
    }
    right = right && exchange.right();
    Row row{command->words.substr(group.size() + 1), Describe(exchange.answer),
            exchange.right() ? "ok" : exchange.problem,
            exchange.right() ? records::Outcome::kPassed : records::Outcome::kFailed};
    name_width = std::max(name_width, row.name.size());
    value_width = std::max(value_width, row.value.size());
    rows.push_back(std::move(row));
  }
  const Console console = ConsoleOf(context.out);
  for (const Row& row : rows) {
    context.out << Padded(row.name, name_width) << "  " << Padded(row.value, value_width) << "  "
                << Coloured(console, row.outcome, row.verdict) << '\n';
  }
  return right ? tools::kExitRight : tools::kExitWrong;
}

int RunRaw(Context& context) {
  const std::vector<std::string>& arguments = context.invocation.arguments;
  const Bytes bytes = EncodeParameters(context.invocation);
  const Bytes parameters(bytes.begin() + 2, bytes.end());
  if (parameters.size() > wire::kMaxParameters) {
    return UsageError(context,
                      "more than " + std::to_string(wire::kMaxParameters) + " parameter bytes");
  }
  double wait = context.timeout;
  if (!TakeSeconds(context, "--wait", 0, &wait)) return tools::kExitUsage;
  const bool silent = IsSilent(bytes[0], bytes[1]);
  const bool waits = !silent || context.invocation.Has("--wait");
  Requester requester(wait, nullptr);
  const Exchange exchange = requester.Send(bytes[0], bytes[1], parameters, waits);
  if (exchange.outcome != Exchange::Outcome::kUnreachable) {
    context.out << "> " << Hex(exchange.request) << '\n'
                << "  " << DescribePacket(qnx::Direction::kToService, exchange.request) << '\n';
  }
  if (!exchange.reply.empty()) {
    context.out << "< " << Hex(exchange.reply) << '\n'
                << "  " << DescribePacket(qnx::Direction::kFromService, exchange.reply) << '\n';
  }
  context.out.flush();
  const bool unanswered = exchange.outcome == Exchange::Outcome::kUnanswered;
  std::string reason;
  const bool taken = exchange.right() || (unanswered && waits && CountServices(&reason) != 0);
  if (silent && exchange.reply.empty() && taken) {
    context.out << "no answer, and none is expected: the service does not answer this command\n";
    return tools::kExitRight;
  }
  if (exchange.right()) return tools::kExitRight;
  context.err << "station: raw " << arguments[0] << ' ' << arguments[1] << ": " << exchange.problem
              << (unanswered && waits ? "; some commands are not answered" : "") << '\n';
  return tools::kExitWrong;
}

int RunMonitor(Context& context) {
  tools::Interrupt interrupt;
  Monitor monitor;
  const std::string problem = monitor.Open();
  if (!problem.empty()) return Complain(context, problem);
  const bool whole = context.invocation.Has("--whole");
  while (context.out.good()) {
    if (!interrupt.Wait(monitor.fd(), -1)) return tools::kExitRight;
    qnx::MonitorHead head{};
    Bytes packet;
    if (!monitor.Read(&head, &packet)) {
      context.err << "station: monitor: the unit is gone\n";
      return tools::kExitRight;
    }
    if (head.direction == qnx::kMonitorLost) {
      context.err << "station: monitor: packets lost here: the monitor fell behind\n";
      continue;
    }
    const auto direction = static_cast<qnx::Direction>(head.direction);
    const std::size_t skipped = whole ? 0 : LinkOffset(packet);
    context.out << tools::ClockTime(head.nanoseconds)
                << (direction == qnx::Direction::kToService ? " > " : " < ")
                << Hex(packet.data() + skipped, packet.size() - skipped) << "  "
                << DescribePacket(direction, packet) << std::endl;
  }
  return tools::kExitWrong;
}

int RunWait(Context& context) {
  tools::Interrupt interrupt;
  const std::vector<std::string>& arguments = context.invocation.arguments;
  const auto deadline =
      Clock::now() + Seconds(arguments.empty() ? kDefaultWait : qnx::ParseReal(arguments[0]));
  std::string reason;
  while (!ServiceAnswers(&interrupt, &reason)) {
    if (Clock::now() >= deadline) return Complain(context, reason);
    interrupt.Wait(-1, kWaitPause);
    if (interrupt.Pending()) return Complain(context, "interrupted: " + reason);
  }
  return tools::kExitRight;
}

int RunGpsWatch(Context& context) {
  double every = 1;
  if (!TakeSeconds(context, "--every", 0.05, &every)) return tools::kExitUsage;
  tools::Interrupt interrupt;
  Requester requester(context.timeout, &interrupt);
  std::vector<Invocation> questions;
  for (const char* words : {"gps position", "gps speed", "gps satellites"}) {
    questions.push_back(Question(*CommandsUnder(words).front()));
  }
  const bool terminal = &context.out == &std::cout && ::isatty(STDOUT_FILENO) != 0;
  while (context.out.good()) {
    const auto next = Clock::now() + Seconds(every);
    std::string screen = terminal ? "\033[H\033[J" : "";
    for (const Invocation& question : questions) {
      const Exchange exchange = requester.Perform(question, false);
      if (interrupt.Pending()) return tools::kExitRight;
      if (exchange.reply.empty()) return Complain(context, exchange.problem);
      if (exchange.right() && question.command->reply->table != nullptr) {
        screen += question.command->reply->table(exchange.parsed.data);
      } else {
        screen += question.command->words + ": " +
                  (exchange.right() ? Describe(exchange.answer) : exchange.problem) + "\n";
      }
    }
    context.out << screen << std::flush;
    const auto rest = std::chrono::duration_cast<std::chrono::milliseconds>(next - Clock::now());
    interrupt.Wait(-1, static_cast<int>(std::max<long long>(0, rest.count())));
    if (interrupt.Pending()) return tools::kExitRight;
  }
  return tools::kExitWrong;
}

}  // namespace station
