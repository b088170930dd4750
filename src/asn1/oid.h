// Object identifiers by number: a static table gives each identifier the library knows a
// small value (oidValue) next to its content octets, so that encoders pick a number and
// decoders switch on one. A second table maps the caller's algorithm numbers
// (1 md2WithRSA, 2 md5WithRSA, 3 sha1WithRSA, 4 rsaEncryption) to those values.
#pragma once

#include <span>

#include "frame/buffer.h"
#include "frame/types.h"

namespace hylorn {

struct ASN1_OBJECT_ID {
  u32 oidValue;     // a value of the table below; 0 = none
  DATA_BUFFER oid;  // content octets of the OBJECT IDENTIFIER (no tag, no length), owned
};

// Sets oidValue to 0 and empties oid (func_no 147). Keeps the error list. Always 0.
u32 ini_ASN1_OBJECT_ID(ASN1_OBJECT_ID* obj);
// Frees oid; oidValue stays (func_no 148). Keeps the error list. Always 0.
u32 free_ASN1_OBJECT_ID(ASN1_OBJECT_ID* obj);

// Copies the octets of obj->oidValue into obj->oid, which must be empty (func_no 101).
// 0 found, 2 not found (0 is never found), 1 the copy failed.
u32 ASN1_Find_Object_ID(ASN1_OBJECT_ID* obj);
// Sets obj->oidValue from obj->oid (func_no 102): the first entry with the same octets
// wins. 0 found, 2 not found (oidValue left as it was).
u32 ASN1_Find_Oid_Value(ASN1_OBJECT_ID* obj);

// Caller algorithm number -> oidValue (3 gives the OIW sha1WithRSASignature). 0 found,
// 1 not found. Leaves the error list alone.
u32 Algorithm_Uid2Oid(u32 number, u32* oidValue);
// oidValue -> caller algorithm number, comparing the low 8 bits of the table's values
// (both SHA-1 identifiers give 3). 0 found, 1 not found. Leaves the error list alone.
u32 Algorithm_Oid2Uid(u8 oidValue, u32* number);

// One row of the object identifier table.
struct OidEntry {
  u32 oidValue;
  u32 length;
  u8 octets[10];  // the first length bytes count
};

// The table's entries in lookup order, without its terminator.
std::span<const OidEntry> object_id_table();

}  // namespace hylorn
