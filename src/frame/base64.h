// Base64 with the RFC 4648 alphabet and "=" padding, without line breaks.
#pragma once

#include "frame/types.h"

namespace hylorn {

// Writes 4 * ceil(inLen / 3) characters and a terminator to out. Always 0.
u32 base64_encode(const u8* in, u32 inLen, char* out);

// Decodes the zero-terminated text in; out needs 3 * strlen(in) / 4 bytes at most.
// Characters outside the alphabet and "=" are skipped. Decoding stops after the first
// group that holds a "=", and after the last whole group once fewer than 4 characters
// of the text remain. Texts shorter than 4 decode to nothing. 0, or 1 when the text
// ends inside a group (error list: 151/1).
u32 base64_decode(const char* in, u8* out, u32* outLen);

// True for the 64 alphabet characters and "=".
bool is_base64_char(char c);

}  // namespace hylorn
