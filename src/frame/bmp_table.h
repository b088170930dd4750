// The caller's BMPString conversion table: 65,536 two-byte entries indexed by the UCS-2
// code unit. The library keeps only the pointer; it never copies or frees the table.
//
// Unlike the error list, the table is shared by all threads. The rule that makes this
// safe: the pointer is swapped atomically, and a decoder reads it once and uses that one
// table for the whole string, so a thread loading a table while another decodes gives the
// decoder either the old table or the new one, never a mix. The caller keeps every table
// it has loaded unchanged and alive while any thread may still be decoding with it.
#pragma once

#include "frame/types.h"

namespace hylorn {

inline constexpr u32 kBmpTableEntries = 65536;

// The table loaded with Crypt_GetBMPTable, or null while none is loaded. Read it once per
// string and keep using that pointer.
const u8* current_bmp_table();

}  // namespace hylorn
