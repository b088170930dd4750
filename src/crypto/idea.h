// The symmetric cipher: IDEA in ECB with the library's 0x01-then-zeros padding,
// processed in 4096-byte chunks.
#pragma once

#include "frame/types.h"

namespace hylorn {

inline constexpr u32 IDEA_KEY_LEN = 16;
inline constexpr u32 IDEA_BLOCK_LEN = 8;
inline constexpr u32 IDEA_CHUNK_LEN = 4096;

// Last-error word codes of the data-level operations.
inline constexpr u32 IDEA_ERR_KEY_LEN = 0x1000003d;
inline constexpr u32 IDEA_ERR_ENCRYPT = 0x1000003e;
inline constexpr u32 IDEA_ERR_DECRYPT = 0x1000003f;

// 1 for success, 0 for failure (the reason goes to the last-error word).
// Encryption writes inLen + 8 - inLen % 8 bytes; decryption at most inLen.
int Idea_Encrypt_Data(u8* out, u32* outLen, const u8* in, u32 inLen, const u8* key, u32 keyLen);
int Idea_Decrypt_Data(u8* out, u32* outLen, const u8* in, u32 inLen, const u8* key, u32 keyLen);

// The calling thread's last-error word (written only by the two operations above).
u32 idea_last_error();

}  // namespace hylorn
