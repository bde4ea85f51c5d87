#include "records/patience.h"

#include <thread>
#include <utility>

#include "tools/program.h"

namespace records {
namespace {

using std::chrono::steady_clock;

const std::chrono::seconds kLongestWait(10);
const std::chrono::seconds kTellAfter(1);

}  // namespace

Patience::Patience(tools::Interrupt* interrupt, std::function<void()> tell)
    : interrupt_(interrupt), tell_(std::move(tell)) {}

void Patience::Begin() {
  waited_ = steady_clock::duration::zero();
  told_ = false;
}

bool Patience::Pause(std::chrono::milliseconds pause) {
  if (IsOver()) return false;
  const auto start = steady_clock::now();
  if (interrupt_ != nullptr) {
    interrupt_->Wait(-1, static_cast<int>(pause.count()));
  } else {
    std::this_thread::sleep_for(pause);
  }
  waited_ += steady_clock::now() - start;
  if (!told_ && waited_ >= kTellAfter && tell_ != nullptr) tell_();
  told_ = told_ || waited_ >= kTellAfter;
  return !IsOver();
}

bool Patience::IsOver() const { return Interrupted() || waited_ >= kLongestWait; }

std::string Patience::Reason() const {
  if (Interrupted()) return "interrupted while another program had the record locked";
  return "another program has kept the record locked for " + std::to_string(kLongestWait.count()) +
         " s";
}

bool Patience::Interrupted() const { return interrupt_ != nullptr && interrupt_->Pending(); }

}  // namespace records
