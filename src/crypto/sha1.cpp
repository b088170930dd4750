// SHA-1, FIPS 180-1: the portable compression function, path selection and the
// streaming and one-shot forms.
#include <atomic>

#include "crypto/block_hash.h"
#include "crypto/digest.h"
#include "crypto/sha1_paths.h"
#include "frame/wipe.h"

namespace hylorn {
namespace {

using block_hash::ByteOrder;
using block_hash::rotl;

// -1: not chosen yet; otherwise a Sha1Path.
std::atomic<int> chosen_path{-1};

Sha1Path best_available_path() {
  return sha1_path_available(Sha1Path::sha_extensions) ? Sha1Path::sha_extensions
                                                       : Sha1Path::portable;
}

struct Sha1Compress {
  static void blocks(u32* state, const u8* data, std::size_t count) {
    if (current_sha1_path() == Sha1Path::sha_extensions)
      sha1_blocks_sha_extensions(state, data, count);
    else
      sha1_blocks_portable(state, data, count);
  }
};

// f(t; B, C, D) and K(t) for the four groups of twenty steps.
template <int Group>
inline u32 f_plus_k(u32 b, u32 c, u32 d) {
  if constexpr (Group == 0) return (d ^ (b & (c ^ d))) + 0x5A827999;
  if constexpr (Group == 1) return (b ^ c ^ d) + 0x6ED9EBA1;
  if constexpr (Group == 2) return ((b & c) | (d & (b | c))) + 0x8F1BBCDC;
  if constexpr (Group == 3) return (b ^ c ^ d) + 0xCA62C1D6;
}

// W(t) = S^1(W(t-3) XOR W(t-8) XOR W(t-14) XOR W(t-16)), kept in a ring of sixteen.
inline u32 schedule(u32 w[16], int t) {
  if (t < 16) return w[t];
  u32 v = rotl(w[(t - 3) & 15] ^ w[(t - 8) & 15] ^ w[(t - 14) & 15] ^ w[t & 15], 1);
  w[t & 15] = v;
  return v;
}

// TEMP = S^5(A) + f(t; B, C, D) + E + W(t) + K(t); E = D; D = C; C = S^30(B); B = A; A = TEMP.
template <int Group>
inline void twenty_steps(u32& a, u32& b, u32& c, u32& d, u32& e, u32 w[16]) {
  for (int t = 20 * Group; t < 20 * Group + 20; ++t) {
    u32 temp = rotl(a, 5) + f_plus_k<Group>(b, c, d) + e + schedule(w, t);
    e = d;
    d = c;
    c = rotl(b, 30);
    b = a;
    a = temp;
  }
}

thread_local u8 sha1_static_output[SHA1_DIGEST_BYTES];

}  // namespace

void sha1_blocks_portable(u32 state[5], const u8* data, std::size_t count) {
  for (; count != 0; --count, data += 64) {
    u32 w[16];
    for (int i = 0; i < 16; ++i) w[i] = block_hash::load32(data + 4 * i, ByteOrder::big);
    u32 a = state[0], b = state[1], c = state[2], d = state[3], e = state[4];
    twenty_steps<0>(a, b, c, d, e, w);
    twenty_steps<1>(a, b, c, d, e, w);
    twenty_steps<2>(a, b, c, d, e, w);
    twenty_steps<3>(a, b, c, d, e, w);
    state[0] += a;
    state[1] += b;
    state[2] += c;
    state[3] += d;
    state[4] += e;
  }
}

bool select_sha1_path(Sha1Path path) {
  if (!sha1_path_available(path)) return false;
  chosen_path.store(static_cast<int>(path), std::memory_order_relaxed);
  return true;
}

void select_sha1_path_automatically() {
  chosen_path.store(static_cast<int>(best_available_path()), std::memory_order_relaxed);
}

Sha1Path current_sha1_path() {
  int path = chosen_path.load(std::memory_order_relaxed);
  if (path < 0) {
    select_sha1_path_automatically();
    path = chosen_path.load(std::memory_order_relaxed);
  }
  return static_cast<Sha1Path>(path);
}

void SHA1_Init(SHA1_CTX* ctx) {
  *ctx = SHA1_CTX{{0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476, 0xc3d2e1f0}, {0, 0}, {}, 0};
}

void SHA1_Update(SHA1_CTX* ctx, const u8* data, u32 length) {
  block_hash::update<Sha1Compress>(ctx, data, length);
}

void SHA1_Final(u8 digest[20], SHA1_CTX* ctx) {
  block_hash::finish<Sha1Compress, 5>(ctx, digest, ByteOrder::big);
  secure_wipe_object(*ctx);
}

u8* Digest_SHA1(const u8* data, u32 length, u8* output) {
  return one_shot_digest<SHA1_CTX, SHA1_Init, SHA1_Update, SHA1_Final>(data, length, output,
                                                                       sha1_static_output);
}

}  // namespace hylorn
