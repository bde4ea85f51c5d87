// Texts and numbers of the bench's programs: what is safe on a terminal, what a number is.
#ifndef KORVANDIS_QNX_TEXT_H
#define KORVANDIS_QNX_TEXT_H

#include <charconv>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace qnx {

// True for the control characters of ASCII.
inline bool IsControl(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte < 0x20 || byte == 0x7F;
}

// Length of the well-formed UTF-8 sequence that `text` (not empty) begins with, 0 when there is
// none.
std::size_t Utf8Length(std::string_view text);

// True when all of `text` is well-formed UTF-8.
bool IsUtf8(std::string_view text);

// `text` with control characters, and bytes that are no UTF-8, written as \n, \t, \\ or \xNN.
std::string Escape(std::string_view text);

// A byte as Escape writes one that is no character: \xNN.
std::string EscapeByte(char byte);

// Two upper-case hexadecimal digits for each byte, and `between` two bytes that character; none
// when it is 0.
std::string Hex(const std::uint8_t* bytes, std::size_t size, char between = ' ');
inline std::string Hex(const std::vector<std::uint8_t>& bytes, char between = ' ') {
  return Hex(bytes.data(), bytes.size(), between);
}

// Two lower-case hexadecimal digits for each byte.
std::string LowerHex(std::string_view bytes);

// The escaped text in single quotes, as messages show names that others chose.
inline std::string Quoted(std::string_view text) { return "'" + Escape(text) + "'"; }

// "1 run", "2 runs".
inline std::string Counted(long long count, const char* one, const char* several) {
  return std::to_string(count) + ' ' + (count == 1 ? one : several);
}

// The lines of `text` without their ends; the last one need not have one.
std::vector<std::string> Lines(std::string_view text);

// A text as printf formats it, however long.
__attribute__((format(printf, 1, 2))) std::string Formatted(const char* format, ...);

// Puts the integer that the whole of `text` is into *number; digits of `base`, perhaps a minus in
// front. False, and *number is unchanged, when it is none or lies outside `least` to `most`.
template <typename Number>
bool ParseNumber(std::string_view text, std::common_type_t<Number> least,
                 std::common_type_t<Number> most, Number* number, int base = 10) {
  Number value = 0;
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, value, base);
  if (error != std::errc() || rest != end || value < least || value > most) return false;
  *number = value;
  return true;
}

// The decimal number, perhaps with a fraction and an exponent, that the whole of `text` is; NaN
// when it is none, or none that a double holds.
double ParseReal(std::string_view text);

}  // namespace qnx

#endif  // KORVANDIS_QNX_TEXT_H
