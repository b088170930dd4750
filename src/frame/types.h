// Fixed-width names used throughout the library, matching the public header's words.
#pragma once

#include <cstdint>

namespace hylorn {

using u8 = unsigned char;
using u16 = unsigned short;
using u32 = unsigned int;
using i32 = int;
using u64 = std::uint64_t;

static_assert(sizeof(u16) == 2 && sizeof(u32) == 4, "the interface assumes 16- and 32-bit words");

}  // namespace hylorn
