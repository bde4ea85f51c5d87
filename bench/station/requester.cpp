#include "station/requester.h"

#include <fcntl.h>

#include <algorithm>
#include <climits>
#include <limits>
#include <thread>

#include "object_changes.h"
#include "qnx/text.h"
#include "tools/pps_object.h"

namespace station {
namespace {

const double kMoment = 0.5;  // seconds that an idle service has for an answer

const char kNowPlaying[] = "/pps/zelmar/navigator/nowplaying";
const char kNowPlayingAttribute[] = "zmplaysource";
const std::chrono::milliseconds kProofPause(50);
const double kNoNumber = std::numeric_limits<double>::quiet_NaN();

// A question that changes nothing: the version of the MPU software.
const std::uint8_t kBarrierCommand = 7;
const std::uint8_t kBarrierSubCommand = 1;

std::string SecondsText(double seconds) { return qnx::Formatted("%g s", seconds); }

// Replaces "{N}" by the N-th argument and "{N-1}" by that number less one, not below 0. What was
// inserted is not looked at again.
std::string Fill(const std::string& text, const std::vector<std::string>& arguments) {
  static const std::string kLess = "-1";
  std::string filled;
  for (std::size_t at = 0; at < text.size(); ++at) {
    const std::size_t end = text[at] == '{' ? text.find('}', at) : std::string::npos;
    std::string mark = end == std::string::npos ? "" : text.substr(at + 1, end - at - 1);
    const bool less = mark.size() > kLess.size() && mark.substr(1) == kLess;
    if (less) mark.resize(1);
    long number = 0;
    if (!qnx::ParseNumber(mark, 1, static_cast<long>(arguments.size()), &number)) {
      filled += text[at];
      continue;
    }
    const std::string& argument = arguments[static_cast<std::size_t>(number) - 1];
    long value = 0;
    if (less && qnx::ParseNumber(argument, 0, LONG_MAX, &value)) {
      filled += std::to_string(std::max(0L, value - 1));
    } else {
      filled += argument;
    }
    at = end;
  }
  return filled;
}

Invocation Reading(const Proof& proof) {
  Invocation reading;
  std::vector<std::string> words;
  SplitWords(proof.command, &words);
  ParseInvocation(words, &reading);
  return reading;
}

// The answer that a read which fails also gives, when it is the one that would prove the write;
// null otherwise.
const char* FailureToo(const Proof& proof, const std::vector<std::string>& arguments) {
  if (proof.command == nullptr) return nullptr;
  const char* const unreadable = Reading(proof).command->reply->spec->unreadable;
  const bool same =
      unreadable != nullptr && std::all_of(proof.expected.begin(), proof.expected.end(),
                                           [&](const Proof::Expected& expected) {
                                             return Fill(expected.value, arguments) == unreadable;
                                           });
  return same ? unreadable : nullptr;
}

// The attribute's value; false when the object or the attribute is not there.
bool ReadAttribute(const char* object, const char* attribute, std::string* value) {
  std::string text;
  return tools::ReadObject(object, O_RDONLY, &text) == 0 &&
         tools::FindAttribute(text, attribute, value);
}

}  // namespace

bool ServiceAnswers(tools::Interrupt* interrupt, std::string* reason) {
  if (!ServiceConnected(reason)) return false;
  Requester requester(kMoment, interrupt);
  if (!requester.Send(kBarrierCommand, kBarrierSubCommand, {}, true).reply.empty()) return true;
  *reason = "the service is connected, but does not answer";
  return false;
}

Exchange Requester::Send(std::uint8_t number, std::uint8_t sub_command, const Bytes& parameters,
                         bool expected) {
  Exchange exchange;
  const auto start = Clock::now();
  exchange.request = wire::BuildRequest(number, sub_command, parameters);
  exchange.problem = link_.Send(exchange.request);
  if (exchange.problem.empty()) {
    exchange.outcome = Exchange::Outcome::kRight;
    std::string reason;
    if (expected) {
      TakeReply(number, sub_command, &exchange);
    } else if (CountServices(&reason) == 0) {
      exchange.outcome = Exchange::Outcome::kUnanswered;
      exchange.problem = "sent, but no service is connected that could take it";
    }
  }
  exchange.seconds = SecondsSince(start);
  return exchange;
}

void Requester::TakeReply(std::uint8_t number, std::uint8_t sub_command, Exchange* exchange) {
  using Outcome = Exchange::Outcome;
  Bytes packet;
  const auto deadline = Clock::now() + Seconds(timeout_);
  const Link::Result result =
      link_.Receive(number, sub_command, deadline, &exchange->parsed, &packet);
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
  const bool early = Clock::now() < deadline;
  const bool connected = ServiceConnected(&reason);
  exchange->problem = "no answer within " + SecondsText(timeout_) +
                      (connected ? ", although the service is connected" : ": " + reason);
  if (early && !connected) exchange->problem = "no answer: " + reason;
}

// NOLINTBEGIN(misc-no-recursion): performing proves with `verify` alone, a proof performs without.
Exchange Requester::Perform(const Invocation& invocation, bool verify) {
  const Command& command = *invocation.command;
  Followed followed;
  if (verify) followed = FollowProofs(command);
  Exchange exchange = Send(command.number, command.sub_command, EncodeParameters(invocation),
                           command.reply != nullptr);
  if (!exchange.right()) return exchange;
  if (command.reply != nullptr) {
    exchange.answer = command.reply->decode(*command.reply, exchange.parsed.data);
    exchange.problem = exchange.answer.problem;
    if (!exchange.problem.empty()) exchange.outcome = Exchange::Outcome::kWrong;
  } else if (verify && !command.proofs.empty()) {
    const auto start = Clock::now();
    Prove(invocation, &followed, &exchange);
    exchange.seconds += SecondsSince(start);
  }
  return exchange;
}

Requester::Followed Requester::FollowProofs(const Command& command) {
  Followed followed;
  for (const Proof& proof : command.proofs) {
    if (proof.object != nullptr && !proof.is_state)
      followed.try_emplace(proof.object, proof.object);
  }
  return followed;
}

void Requester::Prove(const Invocation& invocation, Followed* followed, Exchange* exchange) {
  const auto deadline = Clock::now() + Seconds(timeout_);
  bool carried_out = false;
  do {
    // The service works off requests in order, so a reading command comes behind the write; an
    // object may still change a moment later.
    std::string source;
    ReadAttribute(kNowPlaying, kNowPlayingAttribute, &source);
    const std::vector<Proof>& proofs = invocation.command->proofs;
    const char* failure = nullptr;
    const auto proof = std::find_if(proofs.begin(), proofs.end(), [&](const Proof& candidate) {
      if (candidate.source != nullptr && source != candidate.source) return false;
      const char* const same = FailureToo(candidate, invocation.arguments);
      if (same != nullptr) failure = same;
      return same == nullptr;
    });
    if (proof == proofs.end()) {
      exchange->outcome = Exchange::Outcome::kUnproven;
      exchange->problem = "sent, but it cannot be proven ";
      exchange->problem += failure == nullptr ? "while the source is " + qnx::Quoted(source)
                                              : "by '" + std::string(failure) +
                                                    "': a read that fails is answered so too";
      return;
    }
    // That the service has come to the write tells only an answer behind it.
    if (proof->object != nullptr && !carried_out) {
      const Exchange question = Send(kBarrierCommand, kBarrierSubCommand, {}, true);
      if (question.reply.empty()) {
        exchange->outcome = question.outcome;
        exchange->problem = "sent, but perhaps not carried out: " + question.problem;
        return;
      }
      carried_out = true;
    }
    LookAtProof(invocation, *proof, followed, exchange);
  } while (!exchange->right() && AwaitNextLook(deadline));
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

void Requester::LookAtProof(const Invocation& invocation, const Proof& proof, Followed* followed,
                            Exchange* exchange) {
  exchange->read_back.clear();
  Answer answer;
  const std::string where = proof.object != nullptr ? proof.object : proof.command;
  if (proof.command != nullptr) {
    const Exchange question = Perform(Reading(proof), false);
    if (question.reply.empty()) {
      exchange->outcome = question.outcome;
      exchange->problem = "sent, but '" + where + "': " + question.problem;
      return;
    }
    answer = question.answer;
  }
  const char* const missing = proof.object == nullptr || proof.is_state ? "missing" : "not written";
  std::string shown;
  bool holds = true;
  for (const Proof::Expected& expected : proof.expected) {
    ReadBack read{expected.field, "", Fill(expected.value, invocation.arguments), kNoNumber};
    bool there = false;
    if (proof.command != nullptr) {
      const Field* field = FindField(answer, expected.field);
      there = field != nullptr;
      if (there) read.text = field->text;
      if (there && field->info->numeric) read.number = field->number;
    } else if (proof.is_state) {
      there = ReadAttribute(proof.object, expected.field, &read.text);
    } else {
      there = followed->at(proof.object).Find(expected.field, &read.text);
    }
    holds = holds && there && read.text == read.expected;
    shown += (shown.empty() ? "" : ", ") + read.name + " is " +
             (there ? qnx::Quoted(read.text) : missing);
    if (there) exchange->read_back.push_back(read);
  }
  shown = "in " + where + " " + shown;
  exchange->outcome = holds ? Exchange::Outcome::kRight : Exchange::Outcome::kUnproven;
  exchange->problem = holds ? "" : "sent, but " + shown;
  exchange->proof = holds ? shown : "";
}
// NOLINTEND(misc-no-recursion)

}  // namespace station
