// Hexadecimal digits.
#ifndef KORVANDIS_WIRE_HEX_H
#define KORVANDIS_WIRE_HEX_H

namespace wire {

// The lower-case digit of the low four bits of `value`.
inline char HexDigit(unsigned value) { return "0123456789abcdef"[value & 0x0F]; }

// The upper-case digit of the low four bits of `value`.
inline char UpperHexDigit(unsigned value) { return "0123456789ABCDEF"[value & 0x0F]; }

// The value of a hexadecimal digit of either case, -1 for any other character.
inline int HexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// The value of two hexadecimal digits, -1 when there are none. The second is read only behind a
// digit.
inline int HexByteValue(const char* digits) {
  const int high = HexValue(digits[0]);
  const int low = high < 0 ? -1 : HexValue(digits[1]);
  return low < 0 ? -1 : high * 16 + low;
}

}  // namespace wire

#endif  // KORVANDIS_WIRE_HEX_H
