// IDEA over whole blocks: the key schedules and three block engines (scalar, SSE2 with
// 8 blocks per step, AVX2 with 16), chosen at run time. ECB blocks are independent, so
// the wide engines simply run the same rounds on several blocks at once.
#include <atomic>
#include <cstddef>

#include "crypto/idea_internal.h"
#include "frame/wipe.h"

#if defined(__x86_64__)
#define HYLORN_IDEA_X86 1
#include <immintrin.h>
#endif

namespace hylorn {
namespace {

// One block at a time, in plain 16-bit integers; the comparisons give all-ones masks
// like their vector counterparts.
struct ScalarLanes {
  using V = u16;
  static constexpr std::size_t blocks = 1;
  static V set1(u16 v) { return v; }
  static V add(V a, V b) { return static_cast<V>(a + b); }
  static V sub(V a, V b) { return static_cast<V>(a - b); }
  static V subs(V a, V b) { return a > b ? static_cast<V>(a - b) : 0; }
  static V xor_(V a, V b) { return a ^ b; }
  static V or_(V a, V b) { return a | b; }
  static V and_(V a, V b) { return a & b; }
  static V cmpeq(V a, V b) { return a == b ? 0xFFFF : 0; }
  static V mullo(V a, V b) { return static_cast<V>(u32{a} * b); }
  static V mulhi(V a, V b) { return static_cast<V>((u32{a} * b) >> 16); }
  static V load_quarter(const u8* p) { return static_cast<V>(p[0] << 8 | p[1]); }
  static void store_quarter(V v, u8* p) {
    p[0] = static_cast<u8>(v >> 8);
    p[1] = static_cast<u8>(v);
  }
};

namespace scalar_engine {
#include "crypto/idea_engine.inc"
}  // namespace scalar_engine

#if HYLORN_IDEA_X86
// Eight blocks in 16-bit lanes. A quarter is two blocks; load_quarter turns their
// big-endian words into [b0w0 b1w0 b0w1 b1w1 ...], so each 32-bit element holds one
// word of both blocks and a 4x4 transposition of 32-bit elements finishes the job.
struct Sse2Lanes {
  using V = __m128i;
  static constexpr std::size_t blocks = 8;
  static V set1(u16 v) { return _mm_set1_epi16(static_cast<short>(v)); }
  static V add(V a, V b) { return _mm_add_epi16(a, b); }
  static V sub(V a, V b) { return _mm_sub_epi16(a, b); }
  static V subs(V a, V b) { return _mm_subs_epu16(a, b); }
  static V xor_(V a, V b) { return _mm_xor_si128(a, b); }
  static V or_(V a, V b) { return _mm_or_si128(a, b); }
  static V and_(V a, V b) { return _mm_and_si128(a, b); }
  static V cmpeq(V a, V b) { return _mm_cmpeq_epi16(a, b); }
  static V mullo(V a, V b) { return _mm_mullo_epi16(a, b); }
  static V mulhi(V a, V b) { return _mm_mulhi_epu16(a, b); }
  static V unpacklo32(V a, V b) { return _mm_unpacklo_epi32(a, b); }
  static V unpackhi32(V a, V b) { return _mm_unpackhi_epi32(a, b); }
  static V unpacklo64(V a, V b) { return _mm_unpacklo_epi64(a, b); }
  static V unpackhi64(V a, V b) { return _mm_unpackhi_epi64(a, b); }
  static V swap_bytes(V v) { return _mm_or_si128(_mm_slli_epi16(v, 8), _mm_srli_epi16(v, 8)); }
  static V load_quarter(const u8* p) {
    V v = swap_bytes(_mm_loadu_si128(reinterpret_cast<const V*>(p)));
    return _mm_unpacklo_epi16(v, _mm_srli_si128(v, 8));
  }
  static void store_quarter(V v, u8* p) {
    constexpr int order = _MM_SHUFFLE(3, 1, 2, 0);
    v = _mm_shuffle_epi32(_mm_shufflehi_epi16(_mm_shufflelo_epi16(v, order), order), order);
    _mm_storeu_si128(reinterpret_cast<V*>(p), swap_bytes(v));
  }
};

namespace sse2_engine {
#include "crypto/idea_engine.inc"
}  // namespace sse2_engine

// Everything up to the matching pop is compiled for AVX2; it only runs after the
// run-time check below.
#if defined(__clang__)
#pragma clang attribute push(__attribute__((target("avx2"))), apply_to = function)
#else
#pragma GCC push_options
#pragma GCC target("avx2")
#endif

// Sixteen blocks: the same layout as Sse2Lanes in each 128-bit half, where one byte
// shuffle does both the byte swap and the interleaving.
struct Avx2Lanes {
  using V = __m256i;
  static constexpr std::size_t blocks = 16;
  static V set1(u16 v) { return _mm256_set1_epi16(static_cast<short>(v)); }
  static V add(V a, V b) { return _mm256_add_epi16(a, b); }
  static V sub(V a, V b) { return _mm256_sub_epi16(a, b); }
  static V subs(V a, V b) { return _mm256_subs_epu16(a, b); }
  static V xor_(V a, V b) { return _mm256_xor_si256(a, b); }
  static V or_(V a, V b) { return _mm256_or_si256(a, b); }
  static V and_(V a, V b) { return _mm256_and_si256(a, b); }
  static V cmpeq(V a, V b) { return _mm256_cmpeq_epi16(a, b); }
  static V mullo(V a, V b) { return _mm256_mullo_epi16(a, b); }
  static V mulhi(V a, V b) { return _mm256_mulhi_epu16(a, b); }
  static V unpacklo32(V a, V b) { return _mm256_unpacklo_epi32(a, b); }
  static V unpackhi32(V a, V b) { return _mm256_unpackhi_epi32(a, b); }
  static V unpacklo64(V a, V b) { return _mm256_unpacklo_epi64(a, b); }
  static V unpackhi64(V a, V b) { return _mm256_unpackhi_epi64(a, b); }
  static V load_quarter(const u8* p) {
    const V gather = _mm256_setr_epi8(1, 0, 9, 8, 3, 2, 11, 10, 5, 4, 13, 12, 7, 6, 15, 14,  //
                                      1, 0, 9, 8, 3, 2, 11, 10, 5, 4, 13, 12, 7, 6, 15, 14);
    return _mm256_shuffle_epi8(_mm256_loadu_si256(reinterpret_cast<const V*>(p)), gather);
  }
  static void store_quarter(V v, u8* p) {
    const V scatter = _mm256_setr_epi8(1, 0, 5, 4, 9, 8, 13, 12, 3, 2, 7, 6, 11, 10, 15, 14,  //
                                       1, 0, 5, 4, 9, 8, 13, 12, 3, 2, 7, 6, 11, 10, 15, 14);
    _mm256_storeu_si256(reinterpret_cast<V*>(p), _mm256_shuffle_epi8(v, scatter));
  }
};

namespace avx2_engine {
#include "crypto/idea_engine.inc"
}  // namespace avx2_engine

void avx2_groups(const IdeaSchedule& s, const u8* in, u8* out, std::size_t groups) {
  avx2_engine::crypt_groups<Avx2Lanes>(s, in, out, groups);
}

#if defined(__clang__)
#pragma clang attribute pop
#else
#pragma GCC pop_options
#endif
#endif  // HYLORN_IDEA_X86

IdeaPath widest_path() {
#if HYLORN_IDEA_X86
  return __builtin_cpu_supports("avx2") ? IdeaPath::avx2 : IdeaPath::sse2;
#else
  return IdeaPath::scalar;
#endif
}

// Set by tests and benchmarks to pin one path; atomic, since any thread may encrypt while
// another pins it.
std::atomic<IdeaPath> forced_path{IdeaPath::automatic};

IdeaPath active_path() {
  static const IdeaPath widest = widest_path();
  const IdeaPath forced = forced_path.load(std::memory_order_relaxed);
  return forced == IdeaPath::automatic ? widest : forced;
}

u64 load_be64(const u8* p) {
  u64 v = 0;
  for (int i = 0; i < 8; ++i) v = v << 8 | p[i];
  return v;
}

}  // namespace

u16 idea_mul(u16 a, u16 b) {
  return scalar_engine::lane_mul<ScalarLanes>(a, b, static_cast<u16>(1 - b));
}

// 65537 is prime, so a^-1 = a^65535 (Fermat); 0 and 1 are their own inverses.
u16 idea_mul_inverse(u16 a) {
  u16 result = 1;
  for (int bit = 15; bit >= 0; --bit) {  // 65535 = sixteen one bits
    result = idea_mul(result, result);
    result = idea_mul(result, a);
  }
  return result;
}

// The key as a 128-bit number hi:lo, rotated left by 25 bits after every eight subkeys.
void idea_encrypt_schedule(const u8 key[IDEA_KEY_LEN], IdeaSchedule* out) {
  u64 hi = load_be64(key), lo = load_be64(key + 8);
  for (int i = 0; i < IDEA_SUBKEYS; ++i) {
    int word = i % 8;
    u64 half = word < 4 ? hi : lo;
    out->k[i] = static_cast<u16>(half >> (48 - 16 * (word % 4)));
    if (word == 7) {
      u64 next_hi = hi << 25 | lo >> 39;
      lo = lo << 25 | hi >> 39;
      hi = next_hi;
    }
  }
  secure_wipe(&hi, sizeof hi);
  secure_wipe(&lo, sizeof lo);
}

// Decryption round j undoes encryption round 8 - j: inverses of that round's four
// mixing subkeys (the additive ones exchanged, except in the first and last step, as
// the rounds exchange the middle words) and the multiplication-addition subkeys of the
// round before it unchanged.
void idea_decrypt_schedule(const IdeaSchedule& enc, IdeaSchedule* out) {
  const u16* z = enc.k;
  for (int j = 0; j <= 8; ++j) {
    const int base = 48 - 6 * j;
    const bool exchange = j != 0 && j != 8;
    u16* d = out->k + 6 * j;
    d[0] = idea_mul_inverse(z[base]);
    d[1] = static_cast<u16>(-z[base + (exchange ? 2 : 1)]);
    d[2] = static_cast<u16>(-z[base + (exchange ? 1 : 2)]);
    d[3] = idea_mul_inverse(z[base + 3]);
    if (j < 8) {
      d[4] = z[base - 2];
      d[5] = z[base - 1];
    }
  }
}

void idea_crypt_blocks(const IdeaSchedule& s, const u8* in, u8* out, std::size_t count) {
  std::size_t done = 0;
  switch (active_path()) {
#if HYLORN_IDEA_X86
    case IdeaPath::avx2:
      avx2_groups(s, in, out, count / Avx2Lanes::blocks);
      done = count / Avx2Lanes::blocks * Avx2Lanes::blocks;
      [[fallthrough]];
    case IdeaPath::sse2: {
      std::size_t groups = (count - done) / Sse2Lanes::blocks;
      sse2_engine::crypt_groups<Sse2Lanes>(s, in + done * IDEA_BLOCK_LEN,
                                           out + done * IDEA_BLOCK_LEN, groups);
      done += groups * Sse2Lanes::blocks;
      break;
    }
#endif
    default:
      break;
  }
  scalar_engine::crypt_groups<ScalarLanes>(s, in + done * IDEA_BLOCK_LEN,
                                           out + done * IDEA_BLOCK_LEN, count - done);
}

bool idea_path_supported(IdeaPath path) {
  switch (path) {
    case IdeaPath::automatic:
    case IdeaPath::scalar:
      return true;
    case IdeaPath::sse2:
      return widest_path() != IdeaPath::scalar;
    case IdeaPath::avx2:
      return widest_path() == IdeaPath::avx2;
  }
  return false;
}

bool idea_force_path(IdeaPath path) {
  if (!idea_path_supported(path)) return false;
  forced_path.store(path, std::memory_order_relaxed);
  return true;
}

void Idea_Encrypt_Blocks(const u8* in, u32 count, u8* out, const u8 key[IDEA_KEY_LEN]) {
  IdeaSchedule enc;
  idea_encrypt_schedule(key, &enc);
  idea_crypt_blocks(enc, in, out, count);
  secure_wipe(&enc, sizeof enc);
}

void Idea_Decrypt_Blocks(const u8* in, u32 count, u8* out, const u8 key[IDEA_KEY_LEN]) {
  IdeaSchedule enc, dec;
  idea_encrypt_schedule(key, &enc);
  idea_decrypt_schedule(enc, &dec);
  idea_crypt_blocks(dec, in, out, count);
  secure_wipe(&enc, sizeof enc);
  secure_wipe(&dec, sizeof dec);
}

}  // namespace hylorn
