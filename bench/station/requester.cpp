#include "station/requester.h"

#include <fcntl.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <thread>

#include "tools/pps_object.h"

namespace station {
namespace {

const char kNowPlaying[] = "/pps/zelmar/navigator/nowplaying";
const char kNowPlayingAttribute[] = "zmplaysource";
const std::chrono::milliseconds kProofPause(50);

// A question that changes nothing: the version of the MPU software.
const std::uint8_t kBarrierCommand = 7;
const std::uint8_t kBarrierSubCommand = 1;

std::string SecondsText(double seconds) {
  char text[32];
  std::snprintf(text, sizeof(text), "%g s", seconds);
  return text;
}

// "{1}" and "{2}" are the arguments; "{2-1}" is the second less one, but not below 0.
std::string Fill(std::string text, const std::vector<std::string>& arguments) {
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string number = std::to_string(i + 1);
    const std::string less =
        std::to_string(std::max(0L, std::strtol(arguments[i].c_str(), nullptr, 10) - 1));
    const std::pair<std::string, std::string> marks[] = {{"{" + number + "}", arguments[i]},
                                                         {"{" + number + "-1}", less}};
    for (const auto& [mark, value] : marks) {
      const std::size_t at = text.find(mark);
      if (at != std::string::npos) text.replace(at, mark.size(), value);
    }
  }
  return text;
}

// The attribute's value; false when the object or the attribute is not there.
bool ReadAttribute(const char* object, const char* attribute, std::string* value) {
  std::string text;
  return tools::ReadObject(object, O_RDONLY, &text) == 0 &&
         tools::FindAttribute(text, attribute, value);
}

}  // namespace

Exchange Requester::Send(std::uint8_t number, std::uint8_t sub_command, const Bytes& parameters,
                         bool expected) {
  Exchange exchange;
  const auto start = Clock::now();
  exchange.request = wire::BuildRequest(number, sub_command, parameters);
  exchange.problem = link_.Send(exchange.request);
  if (exchange.problem.empty()) {
    exchange.outcome = Exchange::Outcome::kRight;
    if (expected) TakeReply(number, sub_command, &exchange);
  }
  exchange.seconds = std::chrono::duration<double>(Clock::now() - start).count();
  return exchange;
}

void Requester::TakeReply(std::uint8_t number, std::uint8_t sub_command, Exchange* exchange) {
  using Outcome = Exchange::Outcome;
  Bytes packet;
  const Link::Result result = link_.Receive(number, sub_command, Clock::now() + Seconds(timeout_),
                                            &exchange->parsed, &packet);
  if (result == Link::Result::kReply) {
    exchange->reply = packet;
    return;
  }
  if (result == Link::Result::kMalformed) {
    exchange->outcome = Outcome::kWrong;
    exchange->reply = packet;
    exchange->problem =
        "a malformed reply of " + std::to_string(packet.size()) + " bytes: " + Hex(packet);
    return;
  }
  exchange->outcome = Outcome::kUnanswered;
  if (result == Link::Result::kGone) {
    exchange->problem = "the unit hung up before it answered";
    return;
  }
  std::string reason;
  const bool connected = ServiceConnected(&reason);
  exchange->problem = "no answer within " + SecondsText(timeout_) +
                      (connected ? ", although the service is connected" : ": " + reason);
}

// NOLINTBEGIN(misc-no-recursion): performing proves with `verify` alone, a proof performs without.
Exchange Requester::Perform(const Invocation& invocation, bool verify) {
  const Command& command = *invocation.command;
  Exchange exchange = Send(command.number, command.sub_command, EncodeParameters(invocation),
                           command.reply != nullptr);
  if (!exchange.right()) return exchange;
  if (command.reply != nullptr) {
    exchange.answer = command.reply->decode(*command.reply, exchange.parsed.data);
    exchange.problem = exchange.answer.problem;
    if (!exchange.problem.empty()) exchange.outcome = Exchange::Outcome::kWrong;
  } else if (verify && !command.proofs.empty()) {
    const auto start = Clock::now();
    Prove(invocation, &exchange);
    exchange.seconds += std::chrono::duration<double>(Clock::now() - start).count();
  }
  return exchange;
}

void Requester::Prove(const Invocation& invocation, Exchange* exchange) {
  const auto deadline = Clock::now() + Seconds(timeout_);
  exchange->outcome = Exchange::Outcome::kUnproven;
  std::string found;
  bool carried_out = false;
  do {
    // The service works off requests in order, so a reading command comes behind the write; an
    // object may still change a moment later.
    std::string source;
    ReadAttribute(kNowPlaying, kNowPlayingAttribute, &source);
    const std::vector<Proof>& proofs = invocation.command->proofs;
    const auto proof = std::find_if(proofs.begin(), proofs.end(), [&](const Proof& candidate) {
      return candidate.source == nullptr || source == candidate.source;
    });
    if (proof == proofs.end()) {
      exchange->problem =
          "sent, but it cannot be proven while the source is '" + tools::Escape(source) + "'";
      return;
    }
    // An object may hold the value from before. That the service has come to the write tells only
    // an answer behind it.
    if (proof->object != nullptr && !carried_out) {
      const Exchange question = Send(kBarrierCommand, kBarrierSubCommand, {}, true);
      if (question.reply.empty()) {
        exchange->problem = "sent, but perhaps not carried out: " + question.problem;
        return;
      }
      carried_out = true;
    }
    if (ProofHolds(invocation, *proof, &found)) {
      exchange->outcome = Exchange::Outcome::kRight;
      exchange->proof = found;
      return;
    }
  } while (AwaitNextLook(deadline));
  exchange->problem = "sent, but " + found;
}

bool Requester::AwaitNextLook(Clock::time_point deadline) const {
  if (interrupt_ == nullptr) {
    std::this_thread::sleep_for(kProofPause);
  } else {
    interrupt_->Wait(-1, static_cast<int>(kProofPause.count()));
    if (interrupt_->Pending()) return false;
  }
  return Clock::now() < deadline;
}

bool Requester::ProofHolds(const Invocation& invocation, const Proof& proof, std::string* found) {
  Answer answer;
  std::string where = proof.object != nullptr ? proof.object : proof.command;
  if (proof.command != nullptr) {
    Invocation reading;
    std::vector<std::string> words;
    SplitWords(proof.command, &words);
    ParseInvocation(words, &reading);
    const Exchange exchange = Perform(reading, false);
    if (exchange.reply.empty()) {
      *found = "'" + where + "': " + exchange.problem;
      return false;
    }
    answer = exchange.answer;
  }
  std::string shown;
  bool holds = true;
  for (const Proof::Expected& expected : proof.expected) {
    std::string value;
    bool there = false;
    if (proof.command != nullptr) {
      const Field* field = FindField(answer, expected.field);
      there = field != nullptr;
      if (there) value = field->text;
    } else {
      there = ReadAttribute(proof.object, expected.field, &value);
    }
    holds = holds && there && value == Fill(expected.value, invocation.arguments);
    shown += (shown.empty() ? "" : ", ") + std::string(expected.field) + " is " +
             (there ? "'" + tools::Escape(value) + "'" : "missing");
  }
  *found = "in " + where + " " + shown;
  return holds;
}
// NOLINTEND(misc-no-recursion)

}  // namespace station
