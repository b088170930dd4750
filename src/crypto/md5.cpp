// MD5, RFC 1321.
#include "crypto/block_hash.h"
#include "crypto/digest.h"
#include "frame/wipe.h"

namespace hylorn {
namespace {

using block_hash::ByteOrder;
using block_hash::rotl;

// The auxiliary functions, written so that the compiler can overlap their parts:
// G's two terms never share a set bit, so their sum equals their OR.
// (Types rather than function pointers keep every call direct.)
struct fun_f {
  static u32 of(u32 x, u32 y, u32 z) { return z ^ (x & (y ^ z)); }
};
struct fun_g {
  static u32 of(u32 x, u32 y, u32 z) { return (x & z) + (y & ~z); }
};
struct fun_h {
  static u32 of(u32 x, u32 y, u32 z) { return x ^ y ^ z; }
};
struct fun_i {
  static u32 of(u32 x, u32 y, u32 z) { return y ^ (x | ~z); }
};

// a = b + ((a + fun(b, c, d) + x + t) <<< s)
template <class Fun>
inline void step(u32& a, u32 b, u32 c, u32 d, u32 x, u32 t, int s) {
  a = b + rotl(a + x + t + Fun::of(b, c, d), s);
}

struct Md5Compress {
  static void blocks(u32* state, const u8* p, std::size_t count);
};

void Md5Compress::blocks(u32* state, const u8* p, std::size_t count) {
  u32 a = state[0], b = state[1], c = state[2], d = state[3];
  for (; count != 0; --count, p += 64) {
    u32 x[16];
    for (int i = 0; i < 16; ++i) x[i] = block_hash::load32(p + 4 * i, ByteOrder::little);
    const u32 a0 = a, b0 = b, c0 = c, d0 = d;

    step<fun_f>(a, b, c, d, x[0], 0xd76aa478, 7);
    step<fun_f>(d, a, b, c, x[1], 0xe8c7b756, 12);
    step<fun_f>(c, d, a, b, x[2], 0x242070db, 17);
    step<fun_f>(b, c, d, a, x[3], 0xc1bdceee, 22);
    step<fun_f>(a, b, c, d, x[4], 0xf57c0faf, 7);
    step<fun_f>(d, a, b, c, x[5], 0x4787c62a, 12);
    step<fun_f>(c, d, a, b, x[6], 0xa8304613, 17);
    step<fun_f>(b, c, d, a, x[7], 0xfd469501, 22);
    step<fun_f>(a, b, c, d, x[8], 0x698098d8, 7);
    step<fun_f>(d, a, b, c, x[9], 0x8b44f7af, 12);
    step<fun_f>(c, d, a, b, x[10], 0xffff5bb1, 17);
    step<fun_f>(b, c, d, a, x[11], 0x895cd7be, 22);
    step<fun_f>(a, b, c, d, x[12], 0x6b901122, 7);
    step<fun_f>(d, a, b, c, x[13], 0xfd987193, 12);
    step<fun_f>(c, d, a, b, x[14], 0xa679438e, 17);
    step<fun_f>(b, c, d, a, x[15], 0x49b40821, 22);

    step<fun_g>(a, b, c, d, x[1], 0xf61e2562, 5);
    step<fun_g>(d, a, b, c, x[6], 0xc040b340, 9);
    step<fun_g>(c, d, a, b, x[11], 0x265e5a51, 14);
    step<fun_g>(b, c, d, a, x[0], 0xe9b6c7aa, 20);
    step<fun_g>(a, b, c, d, x[5], 0xd62f105d, 5);
    step<fun_g>(d, a, b, c, x[10], 0x02441453, 9);
    step<fun_g>(c, d, a, b, x[15], 0xd8a1e681, 14);
    step<fun_g>(b, c, d, a, x[4], 0xe7d3fbc8, 20);
    step<fun_g>(a, b, c, d, x[9], 0x21e1cde6, 5);
    step<fun_g>(d, a, b, c, x[14], 0xc33707d6, 9);
    step<fun_g>(c, d, a, b, x[3], 0xf4d50d87, 14);
    step<fun_g>(b, c, d, a, x[8], 0x455a14ed, 20);
    step<fun_g>(a, b, c, d, x[13], 0xa9e3e905, 5);
    step<fun_g>(d, a, b, c, x[2], 0xfcefa3f8, 9);
    step<fun_g>(c, d, a, b, x[7], 0x676f02d9, 14);
    step<fun_g>(b, c, d, a, x[12], 0x8d2a4c8a, 20);

    step<fun_h>(a, b, c, d, x[5], 0xfffa3942, 4);
    step<fun_h>(d, a, b, c, x[8], 0x8771f681, 11);
    step<fun_h>(c, d, a, b, x[11], 0x6d9d6122, 16);
    step<fun_h>(b, c, d, a, x[14], 0xfde5380c, 23);
    step<fun_h>(a, b, c, d, x[1], 0xa4beea44, 4);
    step<fun_h>(d, a, b, c, x[4], 0x4bdecfa9, 11);
    step<fun_h>(c, d, a, b, x[7], 0xf6bb4b60, 16);
    step<fun_h>(b, c, d, a, x[10], 0xbebfbc70, 23);
    step<fun_h>(a, b, c, d, x[13], 0x289b7ec6, 4);
    step<fun_h>(d, a, b, c, x[0], 0xeaa127fa, 11);
    step<fun_h>(c, d, a, b, x[3], 0xd4ef3085, 16);
    step<fun_h>(b, c, d, a, x[6], 0x04881d05, 23);
    step<fun_h>(a, b, c, d, x[9], 0xd9d4d039, 4);
    step<fun_h>(d, a, b, c, x[12], 0xe6db99e5, 11);
    step<fun_h>(c, d, a, b, x[15], 0x1fa27cf8, 16);
    step<fun_h>(b, c, d, a, x[2], 0xc4ac5665, 23);

    step<fun_i>(a, b, c, d, x[0], 0xf4292244, 6);
    step<fun_i>(d, a, b, c, x[7], 0x432aff97, 10);
    step<fun_i>(c, d, a, b, x[14], 0xab9423a7, 15);
    step<fun_i>(b, c, d, a, x[5], 0xfc93a039, 21);
    step<fun_i>(a, b, c, d, x[12], 0x655b59c3, 6);
    step<fun_i>(d, a, b, c, x[3], 0x8f0ccc92, 10);
    step<fun_i>(c, d, a, b, x[10], 0xffeff47d, 15);
    step<fun_i>(b, c, d, a, x[1], 0x85845dd1, 21);
    step<fun_i>(a, b, c, d, x[8], 0x6fa87e4f, 6);
    step<fun_i>(d, a, b, c, x[15], 0xfe2ce6e0, 10);
    step<fun_i>(c, d, a, b, x[6], 0xa3014314, 15);
    step<fun_i>(b, c, d, a, x[13], 0x4e0811a1, 21);
    step<fun_i>(a, b, c, d, x[4], 0xf7537e82, 6);
    step<fun_i>(d, a, b, c, x[11], 0xbd3af235, 10);
    step<fun_i>(c, d, a, b, x[2], 0x2ad7d2bb, 15);
    step<fun_i>(b, c, d, a, x[9], 0xeb86d391, 21);

    a += a0;
    b += b0;
    c += c0;
    d += d0;
  }
  state[0] = a;
  state[1] = b;
  state[2] = c;
  state[3] = d;
}

thread_local u8 md5_static_output[MD5_DIGEST_BYTES];

}  // namespace

void MD5_Init(MD5_CTX* ctx) {
  *ctx = MD5_CTX{{0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476}, {0, 0}, {}, 0};
}

void MD5_Update(MD5_CTX* ctx, const u8* data, u32 length) {
  block_hash::update<Md5Compress>(ctx, data, length);
}

void MD5_Final(u8 digest[16], MD5_CTX* ctx) {
  block_hash::finish<Md5Compress, 4>(ctx, digest, ByteOrder::little);
  secure_wipe_object(*ctx);
}

u8* Digest_MD5(const u8* data, u32 length, u8* output) {
  return one_shot_digest<MD5_CTX, MD5_Init, MD5_Update, MD5_Final>(data, length, output,
                                                                   md5_static_output);
}

}  // namespace hylorn
