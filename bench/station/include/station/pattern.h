// Patterns that a text is held against.
#ifndef KORVANDIS_STATION_PATTERN_H
#define KORVANDIS_STATION_PATTERN_H

#include <memory>
#include <string>

namespace re2 {
class RE2;
}

namespace station {

// One regular expression in the syntax of RE2, over UTF-8. It takes time in proportion to the text,
// whatever the pattern, and memory up to a fixed limit; in return it has no back references and
// no look-around.
class Pattern {
 public:
  explicit Pattern(const std::string& text);
  ~Pattern();
  Pattern(Pattern&& other) noexcept;
  Pattern& operator=(Pattern&& other) noexcept;

  // Why `text` is not a pattern, without the pattern itself; empty when it is one.
  const std::string& problem() const { return problem_; }

  // True when the whole of `text` matches. A wrong pattern matches nothing.
  bool Matches(const std::string& text) const;

 private:
  std::unique_ptr<re2::RE2> expression_;
  std::string problem_;
};

}  // namespace station

#endif  // KORVANDIS_STATION_PATTERN_H
