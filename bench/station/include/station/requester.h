// Carries out commands against a unit: request, reply, verdict, proof.
#ifndef KORVANDIS_STATION_REQUESTER_H
#define KORVANDIS_STATION_REQUESTER_H

#include <map>
#include <string>

#include "station/command.h"
#include "station/link.h"

namespace station {

class ObjectChanges;

// One value that the proof of a write read back.
struct ReadBack {
  std::string name;  // field of the reading command's reply, or attribute of the object
  std::string text;
  std::string expected;
  double number;  // NaN when it is a text
};

// One request and its result.
struct Exchange {
  enum class Outcome {
    kRight,        // answered rightly, or sent when there is no answer
    kWrong,        // answered, and the answer is wrong
    kUnanswered,   // no answer in time
    kUnreachable,  // not even sent
    kUnproven,     // sent, and what was read back is something else
  };
  Outcome outcome = Outcome::kUnreachable;
  std::string problem;              // one line, empty when right
  Bytes request;                    // whole packet
  Bytes reply;                      // whole packet, empty when none
  wire::Reply parsed{};             // the reply, when it is well-formed
  Answer answer;                    // when the command has a reply
  std::string proof;                // what proved a write, empty when nothing was asked
  std::vector<ReadBack> read_back;  // what the last look at the proof found
  double seconds = 0;               // from sending to the end

  bool right() const { return outcome == Outcome::kRight; }
};

class Requester {
 public:
  // `interrupt` ends waits early; may be null.
  Requester(double timeout, tools::Interrupt* interrupt)
      : timeout_(timeout), interrupt_(interrupt), link_(interrupt) {}

  // Sends a command and takes its answer. With `verify` a write is proven, within the same time
  // again: what it changes may take a moment.
  Exchange Perform(const Invocation& invocation, bool verify);

  // Sends any request; every reply counts as right. With `expected` false it does not wait, and
  // counts as unanswered when no service is there to take the request.
  Exchange Send(std::uint8_t number, std::uint8_t sub_command, const Bytes& parameters,
                bool expected);

  // Longest wait for a reply, in seconds.
  void set_timeout(double timeout) { timeout_ = timeout; }

 private:
  // The objects that may prove a write, by their paths, followed since before it was sent.
  using Followed = std::map<std::string, ObjectChanges>;

  static Followed FollowProofs(const Command& command);
  void Prove(const Invocation& invocation, Followed* followed, Exchange* exchange);
  // Looks at the proof once: outcome, problem or proof, and what was read back.
  void LookAtProof(const Invocation& invocation, const Proof& proof, Followed* followed,
                   Exchange* exchange);
  void TakeReply(std::uint8_t number, std::uint8_t sub_command, Exchange* exchange);

  // Waits before the next look at a proof; false when there is no more time.
  bool AwaitNextLook(Clock::time_point deadline) const;

  double timeout_;
  tools::Interrupt* interrupt_;
  Link link_;
};

// Asks the service a question that touches nothing of the unit. False, with the reason, when no
// service is connected or it does not answer within a moment: it is not started yet, or busy.
bool ServiceAnswers(tools::Interrupt* interrupt, std::string* reason);

}  // namespace station

#endif  // KORVANDIS_STATION_REQUESTER_H
