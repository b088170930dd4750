// Distinguished names: the DER coders and the conversions between the caller's sixteen
// slots and the internal attribute list. Certificates, CRLs and requests all use these.
//
//   Name ::= SEQUENCE OF RelativeDistinguishedName
//   RelativeDistinguishedName ::= SET SIZE (1..MAX) OF AttributeTypeAndValue
//   AttributeTypeAndValue ::= SEQUENCE { type AttributeType, value AttributeValue }
#pragma once

#include "frame/buffer.h"
#include "frame/types.h"
#include "x509/records.h"

namespace hylorn {

// Allocates one node with an empty type and value (keeps the error list).
u32 new_X500_NAME(X500_NAME** node);
// Frees a whole list from node on, with its buffers. Null is fine. Always 0.
u32 free_X500_NAME(X500_NAME* list);

// One SET per attribute, in list order; emailAddress as IA5String, the rest as
// PrintableString. The empty list is 30 00 (func_no 207).
u32 Der_Encode_X500_Name(const X500_NAME* list, DATA_BUFFER* out);
// Appends one node per RDN (its first attribute) to a new list at *list (func_no 208).
// On failure nothing is left allocated and *list is null.
u32 Der_Decode_X500_Name(u32 total, const u8* der, X500_NAME** list);

// One node per non-empty slot, slots 0 to 12, 14, 15, then 13 (func_no 305).
u32 u2l_X500_NAME(const USER_X500_NAME* user, X500_NAME** list);
// Fills the slots from the list; unknown types and values of 256 octets or more are
// skipped, and the last occurrence of an attribute wins. Never fails.
u32 l2u_X500_NAME(const X500_NAME* list, USER_X500_NAME* user);

}  // namespace hylorn
