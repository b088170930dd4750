// Hex text to bytes and back, for readable test vectors.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace hylorn_test {

using Bytes = std::vector<unsigned char>;

// "30 06 02 01 05" or "300602" -> bytes; blanks, colons and line breaks are ignored.
inline Bytes from_hex(std::string_view hex) {
  Bytes out;
  int high = -1;
  for (char c : hex) {
    if (c == ' ' || c == ':' || c == '\n' || c == '\r' || c == '\t') continue;
    const int v = c >= '0' && c <= '9'   ? c - '0'
                  : c >= 'a' && c <= 'f' ? c - 'a' + 10
                  : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                         : -1;
    if (v < 0) throw std::invalid_argument("bad hex digit in test vector");
    if (high < 0) {
      high = v;
    } else {
      out.push_back(static_cast<unsigned char>(high << 4 | v));
      high = -1;
    }
  }
  if (high >= 0) throw std::invalid_argument("odd number of hex digits in test vector");
  return out;
}

// Lower-case hex without separators.
inline std::string to_hex(const unsigned char* data, std::size_t n) {
  static const char kDigits[] = "0123456789abcdef";
  std::string s;
  s.reserve(2 * n);
  for (std::size_t i = 0; i < n; ++i) {
    s.push_back(kDigits[data[i] >> 4]);
    s.push_back(kDigits[data[i] & 15]);
  }
  return s;
}
inline std::string to_hex(const Bytes& b) {
  return to_hex(b.data(), b.size());
}
inline Bytes bytes_of(std::string_view text) {
  return Bytes(text.begin(), text.end());
}

}  // namespace hylorn_test
