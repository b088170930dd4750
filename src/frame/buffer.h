// The two byte-string records every other part of the library holds its bytes in.
//
// Records are plain values: copying a record copies the pointer, not the bytes, and the
// owner releases the block with free_DATA_BUFFER / free_BIT_DATA_BUFFER. The copy
// operations never free the destination, which must be empty on entry.
#pragma once

#include "frame/types.h"

namespace hylorn {

struct DATA_BUFFER {
  u32 length;  // valid bytes in data
  u8* data;    // heap block of exactly length bytes; null when length is 0
};

struct BIT_DATA_BUFFER {
  u32 length;      // bytes in data
  u32 unusedBits;  // unused low-order bits of the last byte (0 to 7)
  u8* data;        // heap block of length bytes; null when length is 0
};

// Empties a record without freeing. Always 0.
u32 ini_DATA_BUFFER(DATA_BUFFER* buf);
// Frees the block if any and empties the record; a second call is harmless. Always 0.
u32 free_DATA_BUFFER(DATA_BUFFER* buf);
// dst = copy of length bytes of src (func_no 132). Length 0 gives the empty record
// without reading src. On failure dst->data is null and dst->length is left as it was.
u32 copy_DATA_BUFFER(DATA_BUFFER* dst, u32 length, const u8* src);

u32 ini_BIT_DATA_BUFFER(BIT_DATA_BUFFER* buf);
u32 free_BIT_DATA_BUFFER(BIT_DATA_BUFFER* buf);
// Copies the bytes and drops unusedBits (func_no 136).
u32 copy_BIT_To_NoneBIT(DATA_BUFFER* dst, BIT_DATA_BUFFER src);
// Copies the bytes with unusedBits 0 (func_no 137).
u32 copy_NoneBIT_To_BIT(BIT_DATA_BUFFER* dst, DATA_BUFFER src);

}  // namespace hylorn
