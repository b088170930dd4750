// The caller's BMPString conversion table: 65,536 two-byte entries indexed by the UCS-2
// code unit. The library keeps only the pointer; it never copies or frees the table.
#pragma once

#include "frame/types.h"

namespace hylorn {

inline constexpr u32 kBmpTableEntries = 65536;

// The table loaded with Crypt_GetBMPTable, or null while none is loaded.
const u8* current_bmp_table();

}  // namespace hylorn
