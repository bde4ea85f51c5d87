// The person at the station. Inside this room only.
#ifndef KORVANDIS_STATION_OPERATOR_H
#define KORVANDIS_STATION_OPERATOR_H

#include <deque>
#include <ostream>
#include <string>

#include "station/sequence_run.h"

namespace station {

// Asks on `out` and takes lines of the standard input; a barcode scanner types such lines too. The
// answers to questions can come from a file instead.
class Operator : public Person {
 public:
  Operator(std::ostream& out, tools::Interrupt* interrupt) : out_(out), interrupt_(interrupt) {}

  // True when the standard input is a terminal.
  static bool IsThere();

  // From now on questions are answered by the lines of a file: y, yes, n or no, one a line, in the
  // order of the questions; empty lines and lines that begin with # are skipped. Returns what
  // is wrong, or nothing.
  std::string ReadAnswers(const std::string& path);

  // Asks for a value of the sequence until what is typed fits. False at the end of the input and on
  // an interrupt.
  bool AskValue(const std::string& name, const Value& value, std::string* text);

  Reply Ask(const std::string& question, std::string* problem) override;

 private:
  // Takes the next line without the blanks at its ends.
  bool ReadLine(std::string* line);

  std::ostream& out_;
  tools::Interrupt* interrupt_;
  std::string typed_;  // and not taken yet
  bool from_file_ = false;
  std::deque<Reply> answers_;
};

}  // namespace station

#endif  // KORVANDIS_STATION_OPERATOR_H
