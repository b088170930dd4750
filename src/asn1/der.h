// DER primitives: one encoder and one decoder per universal type the library writes or
// reads, and the explicit context tags.
//
// Encoders take the contents and write one whole element (tag, definite length,
// contents) into a new DATA_BUFFER; they refuse empty contents (BOOLEAN aside), so no
// primitive of the library ever writes an empty element. Decoders take exactly one whole
// element of `total` bytes, refuse trailing or missing bytes, and return its contents in
// a new record. Output records must be empty on entry; on failure they are left empty.
// Every function empties the error list on entry and appends one entry on failure.
#pragma once

#include "asn1/oid.h"
#include "frame/buffer.h"
#include "frame/types.h"

namespace hylorn {

// INTEGER (111/112). The contents are an unsigned big-endian magnitude: the encoder puts
// 0x00 in front when the first byte has bit 7 set and keeps leading zeros; the decoder
// removes exactly one leading 0x00 from contents of 2 bytes or more.
u32 ASN1_Encode_Integer(DATA_BUFFER in, DATA_BUFFER* out);
u32 ASN1_Decode_Integer(u32 total, const u8* der, DATA_BUFFER* out);

// BOOLEAN (113/114): 01 01 FF or 01 01 00. The decoder needs a total of 3 or more and
// answers 1 when the first contents octet is non-zero (0 for empty contents).
u32 ASN1_Encode_Boolean(u8 value, DATA_BUFFER* out);
u32 ASN1_Decode_Boolean(u32 total, const u8* der, u8* out);

// BIT STRING (105/106): contents are the unused-bits octet (0 to 7) then the bytes; the
// unused bits of the last byte are written and read as they are.
u32 ASN1_Encode_Bit_String(BIT_DATA_BUFFER in, DATA_BUFFER* out);
u32 ASN1_Decode_Bit_String(u32 total, const u8* der, BIT_DATA_BUFFER* out);

// OBJECT IDENTIFIER (103/104): only obj.oid is written; the decoder fills out->oid and
// leaves out->oidValue to ASN1_Find_Oid_Value.
u32 ASN1_Encode_Object(ASN1_OBJECT_ID obj, DATA_BUFFER* out);
u32 ASN1_Decode_Object(u32 total, const u8* der, ASN1_OBJECT_ID* out);

// String-like types, contents as given and as found (no character-set or format check).
u32 ASN1_Encode_Octet_String(DATA_BUFFER in, DATA_BUFFER* out);      // 119, tag 04
u32 ASN1_Decode_Octet_String(u32 total, const u8* der, DATA_BUFFER* out);  // 120
u32 ASN1_Encode_PrintableString(DATA_BUFFER in, DATA_BUFFER* out);   // 115, tag 13
u32 ASN1_Decode_PrintableString(u32 total, const u8* der, DATA_BUFFER* out);  // 116
u32 ASN1_Encode_IA5String(DATA_BUFFER in, DATA_BUFFER* out);         // 117, tag 16
u32 ASN1_Decode_IA5String(u32 total, const u8* der, DATA_BUFFER* out);  // 118
u32 ASN1_Encode_UTCTime(DATA_BUFFER in, DATA_BUFFER* out);           // 121, tag 17
u32 ASN1_Decode_UTCTime(u32 total, const u8* der, DATA_BUFFER* out);  // 122
u32 ASN1_Encode_GeneralizedTime(DATA_BUFFER in, DATA_BUFFER* out);   // 123, tag 18
u32 ASN1_Decode_GeneralizedTime(u32 total, const u8* der, DATA_BUFFER* out);  // 124
u32 ASN1_Decode_T61String(u32 total, const u8* der, DATA_BUFFER* out);  // 226, tag 14

// BMPString (156, tag 1E) into the caller's local text through the loaded BMP table:
// code units below 0x100 become one byte, the others the two bytes of their table entry
// with bit 7 set. Fails before looking at the input while no table is loaded.
u32 ASN1_Decode_BMPString(u32 total, const u8* der, DATA_BUFFER* out);

// Explicit context tags [n] (125/222 write 0xA0 | n; n above 30 is not supported). The
// decoders (126/223) accept any identifier octet with bits 8 and 6 set (context or
// private class, constructed) and return its low five bits in *tag.
u32 ASN1_Encode_Explicit_Tag(DATA_BUFFER inner, u8 tag, DATA_BUFFER* out);
u32 ASN1_Encode_Explicit_Tag_P(const DATA_BUFFER* inner, u8 tag, DATA_BUFFER* out);
u32 ASN1_Decode_Explicit_Tag(u32 total, const u8* der, DATA_BUFFER* out, u8* tag);
u32 ASN1_Decode_Explicit_Tag_P(const DATA_BUFFER* in, DATA_BUFFER* out, u8* tag);

}  // namespace hylorn
