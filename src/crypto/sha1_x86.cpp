// SHA-1 compression with the x86 SHA extensions (SHA1RNDS4, SHA1NEXTE, SHA1MSG1/2).
//
// The state lives in two registers: ABCD with A in the highest lane, and E alone in the
// highest lane of another. Each SHA1RNDS4 performs four steps; SHA1NEXTE derives the next
// group's E (A of four steps earlier rotated by 30) and adds it to the next four message
// words. The message schedule is computed four words at a time in a ring of four registers.
#include "crypto/sha1_paths.h"

#if defined(__x86_64__) || defined(__i386__)
#include <cpuid.h>
#include <immintrin.h>

#define HYLORN_SHA_TARGET __attribute__((target("sha,sse4.1")))

namespace hylorn {
namespace {

bool cpu_has_sha_extensions() {
  unsigned a = 0, b = 0, c = 0, d = 0;
  if (!__get_cpuid(1, &a, &b, &c, &d)) return false;
  bool ssse3 = (c & (1u << 9)) != 0, sse41 = (c & (1u << 19)) != 0;
  if (!__get_cpuid_count(7, 0, &a, &b, &c, &d)) return false;
  bool sha = (b & (1u << 29)) != 0;
  return ssse3 && sse41 && sha;
}

struct Sha1Lanes {
  __m128i abcd, e;  // e: the value whose rotated A becomes the next group's E
  __m128i w[4];     // message words W(4g) .. W(4g+3) for the last four groups
};

// Group g covers steps 4g .. 4g+3; its function and constant are those of step 4g.
template <int G>
HYLORN_SHA_TARGET inline __attribute__((always_inline)) void four_steps(Sha1Lanes& s,
                                                                         const u8* data,
                                                                         __m128i byte_swap) {
  __m128i& w = s.w[G % 4];
  if constexpr (G < 4) {
    w = _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(data + 16 * G)),
                         byte_swap);
  } else {
    // W(4g..4g+3) from W(4g-16..4g-1): MSG1 XORs the (t-16, t-14) pairs, the plain XOR
    // adds W(t-8), MSG2 adds W(t-3) and rotates by one.
    __m128i mixed = _mm_xor_si128(_mm_sha1msg1_epu32(w, s.w[(G + 1) % 4]), s.w[(G + 2) % 4]);
    w = _mm_sha1msg2_epu32(mixed, s.w[(G + 3) % 4]);
  }
  __m128i e_plus_w = G == 0 ? _mm_add_epi32(s.e, w) : _mm_sha1nexte_epu32(s.e, w);
  s.e = s.abcd;
  s.abcd = _mm_sha1rnds4_epu32(s.abcd, e_plus_w, G / 5);
}

template <int G>
HYLORN_SHA_TARGET inline __attribute__((always_inline)) void steps_from(Sha1Lanes& s,
                                                                         const u8* data,
                                                                         __m128i byte_swap) {
  four_steps<G>(s, data, byte_swap);
  if constexpr (G + 1 < 20) steps_from<G + 1>(s, data, byte_swap);
}

}  // namespace

HYLORN_SHA_TARGET void sha1_blocks_sha_extensions(u32 state[5], const u8* data,
                                                  std::size_t count) {
  // Reverses the bytes of each word and the order of the words.
  const __m128i byte_swap = _mm_set_epi64x(0x0001020304050607LL, 0x08090a0b0c0d0e0fLL);
  __m128i abcd = _mm_shuffle_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(state)), 0x1B);
  __m128i e = _mm_set_epi32(static_cast<int>(state[4]), 0, 0, 0);
  for (; count != 0; --count, data += 64) {
    Sha1Lanes s{abcd, e, {}};
    steps_from<0>(s, data, byte_swap);
    e = _mm_sha1nexte_epu32(s.e, e);
    abcd = _mm_add_epi32(s.abcd, abcd);
  }
  _mm_storeu_si128(reinterpret_cast<__m128i*>(state), _mm_shuffle_epi32(abcd, 0x1B));
  state[4] = static_cast<u32>(_mm_extract_epi32(e, 3));
}

bool sha1_path_available(Sha1Path path) {
  if (path == Sha1Path::portable) return true;
  static const bool has_sha = cpu_has_sha_extensions();
  return has_sha;
}

}  // namespace hylorn

#else  // not x86: only the portable path exists

namespace hylorn {

void sha1_blocks_sha_extensions(u32 state[5], const u8* data, std::size_t count) {
  sha1_blocks_portable(state, data, count);
}

bool sha1_path_available(Sha1Path path) { return path == Sha1Path::portable; }

}  // namespace hylorn

#endif
