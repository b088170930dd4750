// The SHA-1 compression paths: portable C++ and, on x86, the SHA extensions. Both give
// the same bytes; the choice is made once from CPUID, and tests may force either.
#pragma once

#include <cstddef>

#include "frame/types.h"

namespace hylorn {

enum class Sha1Path { portable, sha_extensions };

// Whether this CPU (and this build) can run the path.
bool sha1_path_available(Sha1Path path);
// Makes all later SHA-1 work use path; false (and no change) when it is not available.
bool select_sha1_path(Sha1Path path);
// Returns to the path CPUID suggests.
void select_sha1_path_automatically();
Sha1Path current_sha1_path();

// Compress count whole 64-byte blocks into the five chaining words.
void sha1_blocks_portable(u32 state[5], const u8* data, std::size_t count);
void sha1_blocks_sha_extensions(u32 state[5], const u8* data, std::size_t count);

}  // namespace hylorn
