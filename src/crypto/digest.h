// MD2 (RFC 1319), MD5 (RFC 1321) and SHA-1 (FIPS 180-1): streaming contexts and
// one-shot forms.
//
// The one-shot forms write into the caller's output, or into one buffer per digest and
// per thread when the output is null (then they are not reentrant within a thread).
#pragma once

#include "frame/types.h"

namespace hylorn {

inline constexpr u32 MD2_DIGEST_BYTES = 16;
inline constexpr u32 MD5_DIGEST_BYTES = 16;
inline constexpr u32 SHA1_DIGEST_BYTES = 20;

struct MD2_CTX {
  u32 count;         // bytes waiting in data
  u8 data[16];       // the partial block
  u32 checksum[16];  // one checksum byte per word
  u32 state[16];     // one state byte per word
};

// MD5 and SHA-1 share the 64-byte block layout; the waiting bytes are kept as bytes
// rather than words so that partial blocks fill without shifting.
struct MD5_CTX {
  u32 state[4];  // A, B, C, D
  u32 count[2];  // message length in bits: low word, high word
  u8 block[64];
  u32 num;  // bytes waiting in block
};

struct SHA1_CTX {
  u32 state[5];  // H0 .. H4
  u32 count[2];  // message length in bits: low word, high word
  u8 block[64];
  u32 num;  // bytes waiting in block
};

void MD2_Init(MD2_CTX* ctx);
void MD2_Update(MD2_CTX* ctx, const u8* data, u32 length);
void MD2_Final(u8 digest[16], MD2_CTX* ctx);

void MD5_Init(MD5_CTX* ctx);
void MD5_Update(MD5_CTX* ctx, const u8* data, u32 length);
void MD5_Final(u8 digest[16], MD5_CTX* ctx);

void SHA1_Init(SHA1_CTX* ctx);
void SHA1_Update(SHA1_CTX* ctx, const u8* data, u32 length);
void SHA1_Final(u8 digest[20], SHA1_CTX* ctx);

// One-shot digests; a null output selects the digest's per-thread buffer. Return the output.
u8* Digest_MD2(const u8* data, u32 length, u8* output);
u8* Digest_MD5(const u8* data, u32 length, u8* output);
u8* Digest_SHA1(const u8* data, u32 length, u8* output);

// The body of the three one-shot forms: a context on the stack, the whole input, the
// digest into output or, when output is null, into the digest's per-thread buffer.
template <class Ctx, void (*Init)(Ctx*), void (*Update)(Ctx*, const u8*, u32),
          void (*Final)(u8*, Ctx*)>
u8* one_shot_digest(const u8* data, u32 length, u8* output, u8* static_output) {
  if (output == nullptr) output = static_output;
  Ctx ctx;
  Init(&ctx);
  Update(&ctx, data, length);
  Final(output, &ctx);
  return output;
}

}  // namespace hylorn
