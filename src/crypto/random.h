// The library's deterministic generator: seed material stretched through MD5.
//
// One RANDOM_STATE per thread serves the whole library. It is re-seeded from the clock
// before every Random_Get_Bytes and from the calendar second at the start of every key
// generation; RSA padding draws from it as it stands. A never-seeded state is all zero
// and counts as ready.
#pragma once

#include "frame/types.h"

namespace hylorn {

inline constexpr u32 RANDOM_BYTES_NEEDED = 256;
inline constexpr u32 RANDOM_ERR_NEED_RANDOM = 1032;

struct RANDOM_STATE {
  u32 bytesNeeded;      // seed bytes still required before output is allowed
  u8 state[16];         // 128-bit big-endian secret state
  u32 outputAvailable;  // unused bytes at the end of output
  u8 output[16];        // last MD5 output block
};

// bytesNeeded = 256, state zero, outputAvailable 0 (output not cleared). Always 0.
u32 Random_Init(RANDOM_STATE* rs);
// Adds MD5(block) into the state and counts the seed bytes. Always 0.
u32 Random_Update(RANDOM_STATE* rs, const u8* block, u32 length);
u32 Random_Bytes_Needed(u32* bytesNeeded, RANDOM_STATE* rs);
// Fills output; 0, or RANDOM_ERR_NEED_RANDOM (nothing written) while seeding is owed.
u32 Random_Generate_Bytes(u8* output, u32 length, RANDOM_STATE* rs);

// Init, then 64 updates of 4-byte clock words (calendar second + processor ms).
void Random_Seed_From_Clock(RANDOM_STATE* rs);
// Init, then 256 updates of one seed byte derived from the calendar second.
void Random_Seed_From_Time(RANDOM_STATE* rs);
// The fixed seeding step of Random_Seed_From_Time with a given byte (for reproducible
// key generation in tests and tools).
void Random_Seed_From_Byte(RANDOM_STATE* rs, u8 seed);
// The byte Random_Seed_From_Time derives from a calendar second: the first value of the
// runtime's linear congruential generator seeded with it, low 8 bits.
u8 seed_byte_from_time(u32 seconds);
// True when the library was built to seed from the operating system (getrandom) instead
// of the clock and the calendar second.
bool random_seeds_from_system();

// Re-seeds the thread's state from the clock, then writes length bytes when
// 1 <= length <= 256. The two trailing arguments are ignored. Always 1.
u32 Random_Get_Bytes(u8* output, u32 length, u8* ignored, u32 ignoredLength);

// The calling thread's random state.
RANDOM_STATE* module_random_state();

}  // namespace hylorn
