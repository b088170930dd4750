// Decimal text and big-endian binary forms of a large unsigned number. Neither direction
// uses the error list: the result alone reports an over-long input.
#include <cstring>

#include "frame/types.h"
#include "hylorn.h"

namespace hylorn {
namespace {

constexpr std::size_t kMaxDigits = 128;  // decimal text
constexpr std::size_t kMaxBytes = 128;   // binary number
// The largest value the text can carry is 128 characters of digit value 255 (see below),
// 255 * (10^128 - 1) / 9 < 2^431: 54 bytes.
constexpr std::size_t kMaxTextBytes = 54;
// 2^1024 - 1 has 309 decimal digits.
constexpr std::size_t kMaxDecimalDigits = 309;

// Halves the decimal number digits[first, n) in place, most significant digit first, and
// returns its parity. Digits may exceed 9 (see decimal_to_bytes); the long division is
// exact for any digit values, and a quotient digit never exceeds (10 + 255) / 2.
unsigned halve(u8* digits, std::size_t first, std::size_t n) {
  unsigned rem = 0;
  for (std::size_t i = first; i < n; ++i) {
    const unsigned cur = rem * 10 + digits[i];
    digits[i] = static_cast<u8>(cur / 2);
    rem = cur % 2;
  }
  return rem;
}

// Collects the bits of the number least significant first by repeated halving. Every
// character counts as the digit value (character code - '0') taken modulo 256, so a
// non-digit still makes a well-defined number ('/' counts 255, ':' counts 10) and the
// result stays within 54 bytes. "0", and the empty text, give one zero byte.
u32 decimal_to_bytes(const char* in, u8* out, u32* outLen) {
  const std::size_t n = std::strlen(in);
  if (n > kMaxDigits) return 1;
  u8 digits[kMaxDigits];
  for (std::size_t i = 0; i < n; ++i)
    digits[i] = static_cast<u8>(static_cast<u8>(in[i]) - static_cast<u8>('0'));

  u8 little[kMaxTextBytes] = {};
  std::size_t bits = 0;
  std::size_t first = 0;  // most significant digit still non-zero
  do {
    if (halve(digits, first, n) != 0) little[bits / 8] |= static_cast<u8>(1u << (bits % 8));
    ++bits;
    while (first < n && digits[first] == 0) ++first;
  } while (first < n);

  const std::size_t count = (bits + 7) / 8;
  for (std::size_t j = 0; j < count; ++j) out[j] = little[count - 1 - j];
  *outLen = static_cast<u32>(count);
  return 0;
}

// Double-dabble: from the most significant bit down, doubles a decimal digit array (least
// significant digit first) and adds the bit.
u32 bytes_to_decimal(const u8* in, i32 inLen, char* out) {
  if (inLen < 0 || static_cast<std::size_t>(inLen) > kMaxBytes) return 1;
  u8 decimal[kMaxDecimalDigits] = {};
  std::size_t used = 1;
  for (i32 i = 0; i < inLen; ++i) {
    for (int b = 7; b >= 0; --b) {
      unsigned carry = (in[i] >> b) & 1u;
      for (std::size_t k = 0; k < used; ++k) {
        const unsigned v = decimal[k] * 2u + carry;
        decimal[k] = static_cast<u8>(v % 10);
        carry = v / 10;
      }
      if (carry != 0) decimal[used++] = static_cast<u8>(carry);
    }
  }
  for (std::size_t k = 0; k < used; ++k) out[k] = static_cast<char>('0' + decimal[used - 1 - k]);
  out[used] = '\0';
  return 0;
}

}  // namespace
}  // namespace hylorn

extern "C" HYLORN_API unsigned int Crypt_Char2Int(const char* in, unsigned char* out,
                                                  unsigned int* outLen) {
  return hylorn::decimal_to_bytes(in ? in : "", out, outLen);
}

extern "C" HYLORN_API unsigned int Crypt_Int2Char(const unsigned char* in, int inLen, char* out) {
  return hylorn::bytes_to_decimal(in, inLen, out);
}
