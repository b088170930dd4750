#include "support/hex.h"

#include <stdexcept>

namespace hylorn_test {
namespace {

int nibble(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

Bytes from_hex(std::string_view hex) {
  Bytes out;
  int high = -1;
  for (char c : hex) {
    if (c == ' ' || c == ':' || c == '\n' || c == '\r' || c == '\t') continue;
    int v = nibble(c);
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

std::string to_hex(const unsigned char* data, std::size_t n) {
  static const char kDigits[] = "0123456789abcdef";
  std::string s;
  s.reserve(2 * n);
  for (std::size_t i = 0; i < n; ++i) {
    s.push_back(kDigits[data[i] >> 4]);
    s.push_back(kDigits[data[i] & 15]);
  }
  return s;
}

}  // namespace hylorn_test
