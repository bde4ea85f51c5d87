#include "banner.h"

#include <array>
#include <cstdint>
#include <map>

namespace station {
namespace {

const int kRows = 7;
const int kColumns = 5;  // each drawn twice as wide, as characters are twice as high

// The rows of a letter, leftmost column in bit 4.
using Letter = std::array<std::uint8_t, kRows>;

const Letter& LetterOf(char c) {
  static const Letter kBlank = {};
  static const std::map<char, Letter> letters = {
      {'A', {{0x0E, 0x11, 0x11, 0x1F, 0x11, 0x11, 0x11}}},
      {'E', {{0x1F, 0x10, 0x10, 0x1E, 0x10, 0x10, 0x1F}}},
      {'F', {{0x1F, 0x10, 0x10, 0x1E, 0x10, 0x10, 0x10}}},
      {'I', {{0x0E, 0x04, 0x04, 0x04, 0x04, 0x04, 0x0E}}},
      {'L', {{0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x1F}}},
      {'O', {{0x0E, 0x11, 0x11, 0x11, 0x11, 0x11, 0x0E}}},
      {'P', {{0x1E, 0x11, 0x11, 0x1E, 0x10, 0x10, 0x10}}},
      {'R', {{0x1E, 0x11, 0x11, 0x1E, 0x14, 0x12, 0x11}}},
      {'S', {{0x0F, 0x10, 0x10, 0x0E, 0x01, 0x01, 0x1E}}}};
  const auto found = letters.find(c);
  return found == letters.end() ? kBlank : found->second;
}

}  // namespace

std::string Banner(const std::string& word) {
  std::string banner;
  for (int row = 0; row < kRows; ++row) {
    std::string line;
    for (const char c : word) {
      for (int column = kColumns - 1; column >= 0; --column) {
        line += (LetterOf(c)[static_cast<std::size_t>(row)] >> column & 1) != 0 ? "##" : "  ";
      }
      line += "  ";
    }
    line.erase(line.find_last_not_of(' ') + 1);
    banner += line + "\n";
  }
  return banner;
}

}  // namespace station
