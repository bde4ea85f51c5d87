#include "operator.h"

#include <unistd.h>

#include <cctype>

#include "files.h"
#include "sequence_text.h"
#include "station/pattern.h"

namespace station {
namespace {

const std::size_t kLongestLine = 4096;
const std::size_t kPartSize = 512;  // of one read

// kNone when it is neither yes nor no.
Person::Reply ParseReply(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  if (text == "y" || text == "yes") return Person::Reply::kYes;
  return text == "n" || text == "no" ? Person::Reply::kNo : Person::Reply::kNone;
}

}  // namespace

bool Operator::IsThere() { return ::isatty(STDIN_FILENO) != 0; }

std::string Operator::ReadAnswers(const std::string& path) {
  std::string text;
  std::string problem = ReadFile(path, &text);
  if (!problem.empty()) return problem;
  from_file_ = true;
  int number = 0;
  for (const std::string& whole : qnx::Lines(text)) {
    const std::string line = Trim(whole);
    ++number;
    if (line.empty() || line[0] == '#') continue;
    answers_.push_back(ParseReply(line));
    if (answers_.back() == Reply::kNone) {
      return tools::Escape(path) + ":" + std::to_string(number) + ": " + Quoted(line) +
             " is neither y nor n";
    }
  }
  return "";
}

bool Operator::AskValue(const std::string& name, const Value& value, std::string* text) {
  const Pattern pattern(value.pattern);
  while (true) {
    out_ << name << ": " << std::flush;
    if (!ReadLine(text)) {
      out_ << std::endl;
      return false;
    }
    // The echo of a terminal ends the line.
    if (!IsThere()) out_ << tools::Escape(*text) << std::endl;
    if (!tools::IsUtf8(*text)) {
      out_ << Quoted(*text) << " is not text in UTF-8" << std::endl;
      continue;
    }
    if (value.pattern.empty() ? !text->empty() : pattern.Matches(*text)) return true;
    if (text->empty()) continue;
    out_ << Quoted(*text) << " does not match " << AsWritten(value.pattern) << std::endl;
  }
}

Person::Reply Operator::Ask(const std::string& question, std::string* problem) {
  if (from_file_) {
    if (answers_.empty()) {
      *problem = "there is no answer left for " + Quoted(question);
      return Reply::kNone;
    }
    const Reply reply = answers_.front();
    answers_.pop_front();
    return reply;
  }
  if (!IsThere()) {
    *problem = "no person to ask " + Quoted(question) + ": no terminal and no --answers";
    return Reply::kNone;
  }
  std::string line;
  do {
    out_ << tools::Escape(question) << " [y/n] " << std::flush;
    if (!ReadLine(&line)) {
      out_ << std::endl;
      *problem = "the input ended at " + Quoted(question);
      return Reply::kNone;
    }
  } while (ParseReply(line) == Reply::kNone);
  return ParseReply(line);
}

bool Operator::ReadLine(std::string* line) {
  while (true) {
    const std::size_t end = typed_.find('\n');
    if (end != std::string::npos || typed_.size() > kLongestLine) {
      *line = Trim(typed_.substr(0, end));
      typed_.erase(0, end == std::string::npos ? end : end + 1);
      return true;
    }
    if (!interrupt_->Wait(STDIN_FILENO, -1)) return false;
    char part[kPartSize];
    const ssize_t count = ::read(STDIN_FILENO, part, sizeof(part));
    if (count > 0) {
      typed_.append(part, static_cast<std::size_t>(count));
      continue;
    }
    // The end. The last line of a file may lack its own; at a terminal it was not entered.
    *line = IsThere() ? "" : Trim(typed_);
    typed_.clear();
    return !line->empty();
  }
}

}  // namespace station
