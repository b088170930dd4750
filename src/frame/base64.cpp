#include "frame/base64.h"

#include <array>
#include <cstring>

#include "frame/error.h"

namespace hylorn {
namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr u8 kPad = 64;    // "="
constexpr u8 kSkip = 255;  // anything else: line ends, blanks, stray characters

constexpr std::array<u8, 256> make_sextets() {
  std::array<u8, 256> t{};
  t.fill(kSkip);
  for (u8 i = 0; i < 64; ++i) t[static_cast<u8>(kAlphabet[i])] = i;
  t['='] = kPad;
  return t;
}
constexpr std::array<u8, 256> kSextet = make_sextets();

// One group of four sextets, most significant first, "=" counting as zero where it stands.
struct Group {
  u32 bits = 0;
  int pads = 0;
};

// Gathers the next four alphabet or "=" characters from in[*pos, n), skipping the rest.
// False when the text ends first.
bool gather_group(const char* in, std::size_t n, std::size_t* pos, Group* g) {
  for (int got = 0; got < 4;) {
    if (*pos == n) return false;
    u8 v = kSextet[static_cast<u8>(in[(*pos)++])];
    if (v == kSkip) continue;
    if (v == kPad) {
      ++g->pads;
      v = 0;
    }
    g->bits = g->bits << 6 | v;
    ++got;
  }
  return true;
}

}  // namespace

bool is_base64_char(char c) {
  return kSextet[static_cast<u8>(c)] != kSkip;
}

u32 base64_encode(const u8* in, u32 inLen, char* out) {
  u32 i = 0;
  for (; inLen - i >= 3; i += 3) {
    const u32 v = u32{in[i]} << 16 | u32{in[i + 1]} << 8 | in[i + 2];
    *out++ = kAlphabet[v >> 18];
    *out++ = kAlphabet[v >> 12 & 63];
    *out++ = kAlphabet[v >> 6 & 63];
    *out++ = kAlphabet[v & 63];
  }
  if (inLen - i == 1) {
    *out++ = kAlphabet[in[i] >> 2];
    *out++ = kAlphabet[(in[i] & 3) << 4];
    *out++ = '=';
    *out++ = '=';
  } else if (inLen - i == 2) {
    const u32 v = u32{in[i]} << 8 | in[i + 1];
    *out++ = kAlphabet[v >> 10];
    *out++ = kAlphabet[v >> 4 & 63];
    *out++ = kAlphabet[(v & 15) << 2];
    *out++ = '=';
  }
  *out = '\0';
  return 0;
}

u32 base64_decode(const char* in, u8* out, u32* outLen) {
  ErrorScope err(151);
  const std::size_t n = std::strlen(in);
  u32 written = 0;
  std::size_t pos = 0;  // counts every character read, skipped ones included
  while (n >= 4) {
    Group g;
    if (!gather_group(in, n, &pos, &g)) return err.fail(1, "base64 decode, not 4");
    // One "=" leaves 2 bytes, two leave 1, three or four leave none.
    const int bytes = g.pads >= 3 ? 0 : 3 - g.pads;
    for (int b = 0; b < bytes; ++b) out[written++] = static_cast<u8>(g.bits >> (16 - 8 * b));
    // Padding ends the text; so does a tail too short to hold another group.
    if (g.pads > 0 || pos + 4 > n) break;
  }
  *outLen = written;
  return 0;
}

}  // namespace hylorn
