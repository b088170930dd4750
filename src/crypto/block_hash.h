// Buffering, length counting and padding shared by the digests with 64-byte blocks and
// a 64-bit bit count (MD5 and SHA-1). They differ only in their block function and in
// the byte order of the count and of the output words.
#pragma once

#include <cstddef>
#include <cstring>

#include "frame/types.h"

namespace hylorn::block_hash {

enum class ByteOrder { little, big };

inline u32 load32(const u8* p, ByteOrder order) {
  if (order == ByteOrder::little)
    return u32(p[0]) | u32(p[1]) << 8 | u32(p[2]) << 16 | u32(p[3]) << 24;
  return u32(p[0]) << 24 | u32(p[1]) << 16 | u32(p[2]) << 8 | u32(p[3]);
}

inline void store32(u8* p, u32 v, ByteOrder order) {
  for (int i = 0; i < 4; ++i) {
    int shift = order == ByteOrder::little ? 8 * i : 24 - 8 * i;
    p[i] = static_cast<u8>(v >> shift);
  }
}

inline u32 rotl(u32 x, int s) { return (x << s) | (x >> (32 - s)); }

// Ctx has state[], count[2] (bits, low word first), block[64] and num.
// Compress::blocks(state, data, count) runs the compression function over count whole
// 64-byte blocks; a type rather than a function pointer keeps the call direct.
template <class Compress, class Ctx>
void update(Ctx* ctx, const u8* data, u32 length) {
  if (length == 0) return;
  u32 low = ctx->count[0] + (length << 3);
  if (low < ctx->count[0]) ++ctx->count[1];
  ctx->count[0] = low;
  ctx->count[1] += length >> 29;

  if (ctx->num != 0) {
    u32 take = 64 - ctx->num < length ? 64 - ctx->num : length;
    std::memcpy(ctx->block + ctx->num, data, take);
    ctx->num += take;
    data += take;
    length -= take;
    if (ctx->num < 64) return;
    Compress::blocks(ctx->state, ctx->block, 1);
    ctx->num = 0;
  }
  std::size_t whole = length / 64;
  if (whole != 0) {
    Compress::blocks(ctx->state, data, whole);
    data += whole * 64;
    length -= static_cast<u32>(whole * 64);
  }
  if (length != 0) std::memcpy(ctx->block, data, length);
  ctx->num = length;
}

// Appends 0x80, zeros up to 56 bytes modulo 64 (an extra block when fewer than 8 bytes
// remain) and the 64-bit bit count, then writes the state words out in order.
template <class Compress, std::size_t Words, class Ctx>
void finish(Ctx* ctx, u8* digest, ByteOrder order) {
  u32 n = ctx->num;
  ctx->block[n++] = 0x80;
  if (n > 56) {
    std::memset(ctx->block + n, 0, 64 - n);
    Compress::blocks(ctx->state, ctx->block, 1);
    n = 0;
  }
  std::memset(ctx->block + n, 0, 56 - n);
  bool little = order == ByteOrder::little;
  store32(ctx->block + 56, little ? ctx->count[0] : ctx->count[1], order);
  store32(ctx->block + 60, little ? ctx->count[1] : ctx->count[0], order);
  Compress::blocks(ctx->state, ctx->block, 1);
  for (std::size_t i = 0; i < Words; ++i) store32(digest + 4 * i, ctx->state[i], order);
}

}  // namespace hylorn::block_hash
