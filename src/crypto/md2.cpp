// MD2, RFC 1319.
#include <array>
#include <cstring>

#include "crypto/block_hash.h"
#include "crypto/digest.h"
#include "frame/wipe.h"

namespace hylorn {
namespace {

// The permutation of 0..255 built from the digits of pi (RFC 1319), one value per word.
alignas(64) constexpr u32 PI_SUBST[256] = {
    41, 46, 67, 201, 162, 216, 124, 1, 61, 54, 84, 161, 236, 240, 6, 19,
    98, 167, 5, 243, 192, 199, 115, 140, 152, 147, 43, 217, 188, 76, 130, 202,
    30, 155, 87, 60, 253, 212, 224, 22, 103, 66, 111, 24, 138, 23, 229, 18,
    190, 78, 196, 214, 218, 158, 222, 73, 160, 251, 245, 142, 187, 47, 238, 122,
    169, 104, 121, 145, 21, 178, 7, 63, 148, 194, 16, 137, 11, 34, 95, 33,
    128, 127, 93, 154, 90, 144, 50, 39, 53, 62, 204, 231, 191, 247, 151, 3,
    255, 25, 48, 179, 72, 165, 181, 209, 215, 94, 146, 42, 172, 86, 170, 198,
    79, 184, 56, 210, 150, 164, 125, 182, 118, 252, 107, 226, 156, 116, 4, 241,
    69, 157, 112, 89, 100, 113, 135, 32, 134, 91, 207, 101, 230, 45, 168, 2,
    27, 96, 37, 173, 174, 176, 185, 246, 28, 70, 97, 105, 52, 64, 126, 15,
    85, 71, 163, 35, 221, 81, 175, 58, 195, 92, 249, 206, 186, 197, 234, 38,
    44, 83, 13, 110, 133, 40, 132, 9, 211, 223, 205, 244, 65, 129, 77, 82,
    106, 220, 55, 200, 108, 193, 171, 250, 36, 225, 123, 8, 12, 189, 177, 74,
    120, 136, 149, 139, 227, 99, 232, 109, 233, 203, 213, 254, 59, 0, 29, 57,
    242, 239, 183, 14, 102, 88, 208, 228, 166, 119, 114, 248, 235, 117, 75, 10,
    49, 68, 80, 180, 143, 237, 31, 26, 219, 153, 141, 51, 159, 17, 131, 20,
};

// MD2's speed is bound by one long chain of dependent table loads (t = X[k] ^= S[t], 864
// per block). A scaled index costs a cycle more per load than a plain byte offset, so the
// rounds work on values times four: entry t of this table sits at byte offset 4t and
// holds 4 * S[t], and the loop indexes it with the byte offset it already has.
constexpr std::array<u32, 256> times_four(const u32 (&table)[256]) {
  std::array<u32, 256> out{};
  for (int i = 0; i < 256; ++i) out[i] = 4 * table[i];
  return out;
}
alignas(64) constexpr std::array<u32, 256> PI_SUBST_X4 = times_four(PI_SUBST);

inline u32 subst_x4(u32 offset) {
  u32 v;
  std::memcpy(&v, reinterpret_cast<const u8*>(PI_SUBST_X4.data()) + offset, sizeof v);
  return v;
}

// Round function over one 16-byte block: X = state | block | state ^ block, eighteen
// passes of X[k] ^= S[t], t = X[k]; then the checksum: C[j] ^= S[M[j] ^ L], L = C[j].
void transform(u32 state[16], const u8 block[16]) {
  u32 x[48];  // every value times four
  for (int j = 0; j < 16; ++j) {
    x[j] = 4 * state[j];
    x[16 + j] = 4 * u32(block[j]);
    x[32 + j] = 4 * (state[j] ^ block[j]);
  }
  u32 t = 0;
  for (u32 round = 0; round < 18; ++round) {
#pragma GCC unroll 48
    for (int k = 0; k < 48; ++k) t = x[k] ^= subst_x4(t);
    t = (t + 4 * round) & 0x3FF;
  }
  for (int j = 0; j < 16; ++j) state[j] = x[j] >> 2;
}

void add_to_checksum(u32 checksum[16], const u8 block[16]) {
  u32 l = checksum[15];
  for (int j = 0; j < 16; ++j) l = checksum[j] ^= PI_SUBST[block[j] ^ l];
}

void absorb(MD2_CTX* ctx, const u8 block[16]) {
  transform(ctx->state, block);
  add_to_checksum(ctx->checksum, block);
}

thread_local u8 md2_static_output[MD2_DIGEST_BYTES];

}  // namespace

void MD2_Init(MD2_CTX* ctx) { *ctx = MD2_CTX{}; }

void MD2_Update(MD2_CTX* ctx, const u8* data, u32 length) {
  block_hash::buffer_blocks<16>(ctx->data, ctx->count, data, length,
                                [ctx](const u8* blocks, std::size_t n) {
                                  for (; n != 0; --n, blocks += 16) absorb(ctx, blocks);
                                });
}

// Pads with n bytes of value n (1 to 16), then appends the checksum as a last block.
void MD2_Final(u8 digest[16], MD2_CTX* ctx) {
  u32 pad = 16 - ctx->count;
  std::memset(ctx->data + ctx->count, static_cast<int>(pad), pad);
  absorb(ctx, ctx->data);
  u8 checksum[16];
  for (int j = 0; j < 16; ++j) checksum[j] = static_cast<u8>(ctx->checksum[j]);
  transform(ctx->state, checksum);
  for (int j = 0; j < 16; ++j) digest[j] = static_cast<u8>(ctx->state[j]);
  secure_wipe_object(*ctx);
}

u8* Digest_MD2(const u8* data, u32 length, u8* output) {
  return one_shot_digest<MD2_CTX, MD2_Init, MD2_Update, MD2_Final>(data, length, output,
                                                                  md2_static_output);
}

}  // namespace hylorn
