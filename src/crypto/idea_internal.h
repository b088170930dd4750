// The cipher below the data level: key schedules, ECB over whole blocks and the
// 4096-byte chunk operations with their selectors and result codes.
#pragma once

#include <cstddef>

#include "crypto/idea.h"
#include "frame/types.h"

namespace hylorn {

inline constexpr int IDEA_SUBKEYS = 52;

// 52 subkeys in processing order: six per round for eight rounds, then four for the
// output transformation.
struct IdeaSchedule {
  u16 k[IDEA_SUBKEYS];
};

// The standard schedule: the key's eight words, then the key rotated left by 25 bits
// again and again, eight words at a time.
void idea_encrypt_schedule(const u8 key[IDEA_KEY_LEN], IdeaSchedule* out);
// The same cipher run backwards: multiplicative inverses mod 65537 and additive
// inverses mod 65536 of the encryption subkeys, in reverse round order.
void idea_decrypt_schedule(const IdeaSchedule& enc, IdeaSchedule* out);
// Multiplication mod 65537 with 0 standing for 65536, and its inverse.
u16 idea_mul(u16 a, u16 b);
u16 idea_mul_inverse(u16 a);

// Runs count 8-byte blocks through the schedule independently (ECB); in and out may be
// the same buffer.
void idea_crypt_blocks(const IdeaSchedule& s, const u8* in, u8* out, std::size_t count);

void Idea_Encrypt_Blocks(const u8* in, u32 count, u8* out, const u8 key[IDEA_KEY_LEN]);
void Idea_Decrypt_Blocks(const u8* in, u32 count, u8* out, const u8 key[IDEA_KEY_LEN]);

// Block engines. The wide ones take 8 (SSE2) or 16 (AVX2) blocks per step in 16-bit
// lanes and hand the remainder to the narrower ones; all give the same bytes.
enum class IdeaPath { automatic, scalar, sse2, avx2 };
bool idea_path_supported(IdeaPath path);
// For tests: route all block work through one engine (automatic: the widest the CPU
// offers). Returns false and changes nothing when the CPU lacks it.
bool idea_force_path(IdeaPath path);

// Which part of a message a chunk operation handles.
inline constexpr int IDEA_CHUNK_FIRST = 1;   // exactly 4096 bytes, no padding
inline constexpr int IDEA_CHUNK_MIDDLE = 2;  // exactly 4096 bytes, no padding
inline constexpr int IDEA_CHUNK_LAST = 3;    // up to 4096 bytes, padded
inline constexpr int IDEA_CHUNK_WHOLE = 4;   // a whole message of up to 4096 bytes, padded

// Chunk results: 0 success, or one of these.
inline constexpr int IDEA_CHUNK_ERR_FULL_LEN = 195;    // encrypt: selector 1/2 but not 4096 bytes
inline constexpr int IDEA_CHUNK_ERR_LAST_LEN = 196;    // selector 3/4 with over 4096 bytes (or negative)
inline constexpr int IDEA_CHUNK_ERR_CIPHER_LEN = 201;  // decrypt: not whole blocks, or 1/2 not 4096
inline constexpr int IDEA_WORKER_NO_MARKER = -59;      // no 0x01 in the last deciphered block
inline constexpr int IDEA_WORKER_LAST_LEN = -60;       // length fault for selectors 3/4
inline constexpr int IDEA_WORKER_FULL_LEN = -61;       // length fault for selectors 1/2
inline constexpr int IDEA_WORKER_SELECTOR = -1;        // selector outside 1 to 4

// Encryption writes 4096 bytes for selectors 1/2 and inLen + 8 - inLen % 8 for 3/4;
// decryption at most inLen. out is written only on success.
int Idea_Encrypt_Chunk(int selector, const u8* in, int inLen, u8* out, u16* outLen,
                       const u8* key);
int Idea_Decrypt_Chunk(int selector, u8* out, u16* outLen, const u8* in, int inLen,
                       const u8* key);

// The workers behind the chunk operations, on an expanded schedule (encryption subkeys
// for the first, decryption subkeys for the second). They repeat the length checks with
// their own codes.
int idea_encrypt_chunk_worker(int selector, const u8* in, int inLen, u8* out, u16* outLen,
                              const IdeaSchedule& enc);
int idea_decrypt_chunk_worker(int selector, u8* out, u16* outLen, const u8* in, int inLen,
                              const IdeaSchedule& dec);

}  // namespace hylorn
