// What the fuzz targets share: taking the fuzzer's bytes apart, and stopping at what must not be.
#ifndef KORVANDIS_FUZZ_INPUT_H
#define KORVANDIS_FUZZ_INPUT_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace fuzz {

// Ends the run, which the fuzzer keeps as a crash, when `holds` is false.
inline void Require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "must hold: %s\n", what);
  std::abort();
}

// Reads the bytes of one run from front to back. Behind the end every byte is 0 and every text is
// empty.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) : at_(data), end_(data + size) {}
  // The bytes must outlive it.
  explicit Input(const std::string& bytes)
      : Input(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()) {}

  bool empty() const { return at_ == end_; }

  std::uint8_t Byte() { return empty() ? std::uint8_t{0} : *at_++; }

  // The next `size` bytes, or those that are left.
  std::string Take(std::size_t size) {
    const auto left = static_cast<std::size_t>(end_ - at_);
    const std::uint8_t* const begin = at_;
    at_ += size < left ? size : left;
    return std::string(begin, at_);
  }

  // A length byte and so many bytes; 255 stands for all that are left.
  std::string Piece() {
    const std::size_t size = Byte();
    return Take(size == 255 ? static_cast<std::size_t>(-1) : size);
  }

 private:
  const std::uint8_t* at_;
  const std::uint8_t* const end_;
};

}  // namespace fuzz

#endif  // KORVANDIS_FUZZ_INPUT_H
