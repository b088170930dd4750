// The MD5-based generator: seeding, state mixing and output blocks.
#include "crypto/random.h"

#include <cstring>
#include <ctime>

#include "crypto/digest.h"
#include "frame/wipe.h"

#ifndef HYLORN_SYSTEM_ENTROPY
#define HYLORN_SYSTEM_ENTROPY 0
#endif

#if HYLORN_SYSTEM_ENTROPY
#include <sys/random.h>

#include <cerrno>
#include <cstdlib>
#endif

namespace hylorn {
namespace {

// One record per thread, so that concurrent callers never tear each other's state or draw
// the same bytes. A thread starts as the process once did: all zero and ready. The
// record is the secret behind RSA padding, so it is wiped when its thread ends.
struct ThreadRandomState {
  RANDOM_STATE rs{};
  ~ThreadRandomState() { secure_wipe_object(rs); }
};
thread_local ThreadRandomState module_state;

void md5_of(const u8* data, u32 length, u8 digest[16]) {
  MD5_CTX ctx;
  MD5_Init(&ctx);
  MD5_Update(&ctx, data, length);
  MD5_Final(digest, &ctx);
}

// state += digest as 128-bit big-endian numbers; the final carry is dropped.
void add_to_state(u8 state[16], const u8 digest[16]) {
  u32 carry = 0;
  for (int i = 15; i >= 0; --i) {
    u32 sum = u32(state[i]) + digest[i] + carry;
    state[i] = static_cast<u8>(sum);
    carry = sum >> 8;
  }
}

// Deliberately not a 128-bit increment: the step moves to the next more significant
// byte only when the byte just incremented was 0, so 0xFF wraps to 0 and stops there.
// Generated streams depend on this exact rule.
void step_state(u8 state[16]) {
  for (int i = 15; i >= 0; --i) {
    u8 before = state[i];
    state[i] = static_cast<u8>(before + 1);
    if (before != 0) break;
  }
}

void copy_out(u8* to, const u8* from, u32 n) {
  if (n != 0) std::memcpy(to, from, n);
}

#if HYLORN_SYSTEM_ENTROPY
// Fills out from the operating system's generator. There is no safe way to carry on
// without it, so a failure other than an interruption stops the process.
void system_entropy(u8* out, std::size_t n) {
  while (n != 0) {
    ssize_t got = getrandom(out, n, 0);
    if (got < 0) {
      if (errno == EINTR) continue;
      std::abort();
    }
    out += got;
    n -= static_cast<std::size_t>(got);
  }
}
#else
// Processor time of the process in milliseconds.
u64 processor_ms() { return static_cast<u64>(std::clock()) * 1000u / CLOCKS_PER_SEC; }

// Calendar second plus processor milliseconds (low 24 bits), wrapping at 32 bits.
u32 clock_word(u64 ms) {
  return static_cast<u32>(std::time(nullptr)) + static_cast<u32>(ms & 0xFFFFFF);
}

// Feeds clock words until the record is ready; ms_now gives each round's milliseconds.
template <class Ms>
void feed_clock_words(RANDOM_STATE* rs, Ms ms_now) {
  Random_Init(rs);
  while (rs->bytesNeeded != 0) {
    u32 w = clock_word(ms_now());
    u8 le[4] = {static_cast<u8>(w), static_cast<u8>(w >> 8), static_cast<u8>(w >> 16),
                static_cast<u8>(w >> 24)};
    Random_Update(rs, le, 4);
  }
}
#endif

}  // namespace

u32 Random_Init(RANDOM_STATE* rs) {
  rs->bytesNeeded = RANDOM_BYTES_NEEDED;
  std::memset(rs->state, 0, sizeof rs->state);
  rs->outputAvailable = 0;
  return 0;
}

u32 Random_Update(RANDOM_STATE* rs, const u8* block, u32 length) {
  u8 digest[16];
  md5_of(block, length, digest);
  add_to_state(rs->state, digest);
  rs->bytesNeeded = rs->bytesNeeded >= length ? rs->bytesNeeded - length : 0;
  secure_wipe_object(digest);
  return 0;
}

u32 Random_Bytes_Needed(u32* bytesNeeded, RANDOM_STATE* rs) {
  *bytesNeeded = rs->bytesNeeded;
  return 0;
}

u32 Random_Generate_Bytes(u8* output, u32 length, RANDOM_STATE* rs) {
  if (rs->bytesNeeded != 0) return RANDOM_ERR_NEED_RANDOM;
  u32 available = rs->outputAvailable;
  while (length > available) {
    copy_out(output, rs->output + 16 - available, available);
    output += available;
    length -= available;
    md5_of(rs->state, 16, rs->output);
    available = 16;
    step_state(rs->state);
  }
  copy_out(output, rs->output + 16 - available, length);
  rs->outputAvailable = available - length;
  return 0;
}

void Random_Seed_From_Clock(RANDOM_STATE* rs) {
#if HYLORN_SYSTEM_ENTROPY
  u8 words[RANDOM_BYTES_NEEDED];
  system_entropy(words, sizeof words);
  Random_Init(rs);
  for (u32 at = 0; rs->bytesNeeded != 0; at += 4) Random_Update(rs, words + at, 4);
  secure_wipe_object(words);
#else
  // Reading processor time is a system call that costs far more than a round. It never
  // runs backwards, so when it shows the same millisecond before and after the rounds,
  // each round would have read that same value: the two reads stand for all 64 and the
  // words are the ones round-by-round reads would give. When the millisecond turned in
  // between, the rounds run again reading it each time.
  const u64 before = processor_ms();
  feed_clock_words(rs, [before] { return before; });
  if (processor_ms() != before) feed_clock_words(rs, [] { return processor_ms(); });
#endif
}

// The first value of the runtime's linear congruential generator after seeding with the
// calendar second, kept to its low 8 bits. Our own copy of that generator, since the C
// library's rand() here is a different one.
u8 seed_byte_from_time(u32 seconds) {
  u32 seed = seconds * 214013u + 2531011u;  // modulo 2^32
  u32 value = (seed >> 16) & 0x7FFF;
  return static_cast<u8>(value);
}

void Random_Seed_From_Byte(RANDOM_STATE* rs, u8 seed) {
  Random_Init(rs);
  while (rs->bytesNeeded != 0) Random_Update(rs, &seed, 1);
}

void Random_Seed_From_Time(RANDOM_STATE* rs) {
#if HYLORN_SYSTEM_ENTROPY
  // Same 256 one-byte rounds, each with its own byte from the system.
  u8 bytes[RANDOM_BYTES_NEEDED];
  system_entropy(bytes, sizeof bytes);
  Random_Init(rs);
  for (u32 at = 0; rs->bytesNeeded != 0; ++at) Random_Update(rs, bytes + at, 1);
  secure_wipe_object(bytes);
#else
  Random_Seed_From_Byte(rs, seed_byte_from_time(static_cast<u32>(std::time(nullptr))));
#endif
}

bool random_seeds_from_system() { return HYLORN_SYSTEM_ENTROPY != 0; }

u32 Random_Get_Bytes(u8* output, u32 length, u8*, u32) {
  Random_Seed_From_Clock(&module_state.rs);
  if (length == 0 || length > RANDOM_BYTES_NEEDED) return 1;
  Random_Generate_Bytes(output, length, &module_state.rs);
  return 1;
}

RANDOM_STATE* module_random_state() {
  return &module_state.rs;
}

}  // namespace hylorn
