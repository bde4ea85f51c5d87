#include "station/pattern.h"

#include <re2/re2.h>

namespace station {
namespace {

re2::RE2::Options Quiet() {
  re2::RE2::Options options;
  options.set_log_errors(false);
  return options;
}

}  // namespace

Pattern::Pattern(const std::string& text) : expression_(new re2::RE2(text, Quiet())) {
  if (!expression_->ok()) problem_ = expression_->error();
}

Pattern::~Pattern() = default;
Pattern::Pattern(Pattern&& other) noexcept = default;
Pattern& Pattern::operator=(Pattern&& other) noexcept = default;

bool Pattern::Matches(const std::string& text) const {
  return expression_->ok() && re2::RE2::FullMatch(text, *expression_);
}

}  // namespace station
