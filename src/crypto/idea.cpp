// IDEA in ECB over messages: 4096-byte chunks, the 0x01-then-zeros padding on the last
// one, and the last-error word of the data-level operations.
#include <cstring>

#include "crypto/idea.h"
#include "crypto/idea_internal.h"
#include "frame/wipe.h"

namespace hylorn {
namespace {

// Per thread, like the error list: it answers for the calling thread's last failure.
thread_local u32 last_error = 0;

constexpr int CHUNK = static_cast<int>(IDEA_CHUNK_LEN);
constexpr int BLOCK = static_cast<int>(IDEA_BLOCK_LEN);

bool is_full_selector(int selector) {
  return selector == IDEA_CHUNK_FIRST || selector == IDEA_CHUNK_MIDDLE;
}
bool is_padded_selector(int selector) {
  return selector == IDEA_CHUNK_LAST || selector == IDEA_CHUNK_WHOLE;
}

// The worker's length rule shared by both directions: -1 for an unknown selector,
// -61 when a full chunk is not 4096 bytes, -60 when a padded one is out of range.
int worker_length_check(int selector, int inLen, int granularity) {
  if (is_full_selector(selector)) return inLen == CHUNK ? 0 : IDEA_WORKER_FULL_LEN;
  if (!is_padded_selector(selector)) return IDEA_WORKER_SELECTOR;
  if (inLen < 0 || inLen > CHUNK || inLen % granularity != 0) return IDEA_WORKER_LAST_LEN;
  return 0;
}

// Where the data ends in a deciphered final block: before the last 0x01 among its
// 8 bytes (the bytes behind it are not checked), or -1 when there is none.
int marker_position(const u8 block[IDEA_BLOCK_LEN]) {
  for (int i = BLOCK - 1; i >= 0; --i)
    if (block[i] == 0x01) return i;
  return -1;
}

// Splits a message into chunks as the data-level operations do: 4096 bytes with
// selector 1, then 2 while more than 4096 remain, the rest with 3; a message of at most
// 4096 bytes is one chunk with selector 4. Each chunk's output goes to the offset of
// its input. Returns false at the first failing chunk.
template <class ChunkOp>
bool for_each_chunk(u32 inLen, u32* outLen, ChunkOp op) {
  if (inLen <= IDEA_CHUNK_LEN) {
    u16 n = 0;
    if (op(IDEA_CHUNK_WHOLE, 0, static_cast<int>(inLen), &n) != 0) return false;
    *outLen = n;
    return true;
  }
  std::size_t offset = 0;
  u32 remaining = inLen;
  int selector = IDEA_CHUNK_FIRST;
  while (remaining > IDEA_CHUNK_LEN) {
    u16 n = 0;
    if (op(selector, offset, CHUNK, &n) != 0) return false;
    offset += IDEA_CHUNK_LEN;
    remaining -= IDEA_CHUNK_LEN;
    selector = IDEA_CHUNK_MIDDLE;
  }
  u16 n = 0;
  if (op(IDEA_CHUNK_LAST, offset, static_cast<int>(remaining), &n) != 0) return false;
  *outLen = static_cast<u32>(offset) + n;
  return true;
}

int encrypt_chunk(int selector, const u8* in, int inLen, u8* out, u16* outLen,
                  const IdeaSchedule& enc) {
  if (is_full_selector(selector) && inLen != CHUNK) return IDEA_CHUNK_ERR_FULL_LEN;
  if (is_padded_selector(selector) && (inLen < 0 || inLen > CHUNK))
    return IDEA_CHUNK_ERR_LAST_LEN;
  return idea_encrypt_chunk_worker(selector, in, inLen, out, outLen, enc);
}

int decrypt_chunk(int selector, u8* out, u16* outLen, const u8* in, int inLen,
                  const IdeaSchedule& dec) {
  if (inLen % BLOCK != 0) return IDEA_CHUNK_ERR_CIPHER_LEN;
  if (is_full_selector(selector) && inLen != CHUNK) return IDEA_CHUNK_ERR_CIPHER_LEN;
  if (is_padded_selector(selector) && (inLen < 0 || inLen > CHUNK))
    return IDEA_CHUNK_ERR_LAST_LEN;
  return idea_decrypt_chunk_worker(selector, out, outLen, in, inLen, dec);
}

}  // namespace

u32 idea_last_error() { return last_error; }

int idea_encrypt_chunk_worker(int selector, const u8* in, int inLen, u8* out, u16* outLen,
                              const IdeaSchedule& enc) {
  if (int fault = worker_length_check(selector, inLen, 1); fault != 0) return fault;
  // Whole blocks go straight through; the tail gets 0x01 and zeros to a full block.
  const int whole = inLen / BLOCK * BLOCK;
  idea_crypt_blocks(enc, in, out, static_cast<std::size_t>(whole / BLOCK));
  if (is_padded_selector(selector)) {
    u8 last[IDEA_BLOCK_LEN] = {};
    if (inLen > whole) std::memcpy(last, in + whole, static_cast<std::size_t>(inLen - whole));
    last[inLen - whole] = 0x01;
    idea_crypt_blocks(enc, last, out + whole, 1);
    secure_wipe(last, sizeof last);
    *outLen = static_cast<u16>(whole + BLOCK);
  } else {
    *outLen = static_cast<u16>(CHUNK);
  }
  return 0;
}

int idea_decrypt_chunk_worker(int selector, u8* out, u16* outLen, const u8* in, int inLen,
                              const IdeaSchedule& dec) {
  if (int fault = worker_length_check(selector, inLen, BLOCK); fault != 0) return fault;
  if (is_full_selector(selector)) {
    idea_crypt_blocks(dec, in, out, CHUNK / BLOCK);
    *outLen = static_cast<u16>(CHUNK);
    return 0;
  }
  // The last block is deciphered first, so that out stays untouched when it holds no
  // padding marker; the blocks before it are all data.
  if (inLen == 0) return IDEA_WORKER_NO_MARKER;
  const int head = inLen - BLOCK;
  u8 last[IDEA_BLOCK_LEN];
  idea_crypt_blocks(dec, in + head, last, 1);
  const int marker = marker_position(last);
  if (marker < 0) {
    secure_wipe(last, sizeof last);
    return IDEA_WORKER_NO_MARKER;
  }
  idea_crypt_blocks(dec, in, out, static_cast<std::size_t>(head / BLOCK));
  if (marker > 0) std::memcpy(out + head, last, static_cast<std::size_t>(marker));
  secure_wipe(last, sizeof last);
  *outLen = static_cast<u16>(head + marker);
  return 0;
}

int Idea_Encrypt_Chunk(int selector, const u8* in, int inLen, u8* out, u16* outLen,
                       const u8* key) {
  IdeaSchedule enc;
  idea_encrypt_schedule(key, &enc);
  int result = encrypt_chunk(selector, in, inLen, out, outLen, enc);
  secure_wipe(&enc, sizeof enc);
  return result;
}

int Idea_Decrypt_Chunk(int selector, u8* out, u16* outLen, const u8* in, int inLen,
                       const u8* key) {
  IdeaSchedule enc, dec;
  idea_encrypt_schedule(key, &enc);
  idea_decrypt_schedule(enc, &dec);
  int result = decrypt_chunk(selector, out, outLen, in, inLen, dec);
  secure_wipe(&enc, sizeof enc);
  secure_wipe(&dec, sizeof dec);
  return result;
}

// The schedule is expanded once for the whole message rather than once per chunk.
int Idea_Encrypt_Data(u8* out, u32* outLen, const u8* in, u32 inLen, const u8* key,
                      u32 keyLen) {
  if (keyLen != IDEA_KEY_LEN) {
    last_error = IDEA_ERR_KEY_LEN;
    return 0;
  }
  IdeaSchedule enc;
  idea_encrypt_schedule(key, &enc);
  bool ok = for_each_chunk(inLen, outLen, [&](int selector, std::size_t at, int len, u16* n) {
    return encrypt_chunk(selector, in + at, len, out + at, n, enc);
  });
  secure_wipe(&enc, sizeof enc);
  if (!ok) last_error = IDEA_ERR_ENCRYPT;
  return ok ? 1 : 0;
}

int Idea_Decrypt_Data(u8* out, u32* outLen, const u8* in, u32 inLen, const u8* key,
                      u32 keyLen) {
  if (keyLen != IDEA_KEY_LEN) {
    last_error = IDEA_ERR_KEY_LEN;
    return 0;
  }
  IdeaSchedule enc, dec;
  idea_encrypt_schedule(key, &enc);
  idea_decrypt_schedule(enc, &dec);
  secure_wipe(&enc, sizeof enc);
  bool ok = for_each_chunk(inLen, outLen, [&](int selector, std::size_t at, int len, u16* n) {
    return decrypt_chunk(selector, out + at, n, in + at, len, dec);
  });
  secure_wipe(&dec, sizeof dec);
  if (!ok) last_error = IDEA_ERR_DECRYPT;
  return ok ? 1 : 0;
}

}  // namespace hylorn
