// SEQUENCE and SET, one level at a time, as singly linked lists of whole elements.
//
// To encode, the caller encodes each component, links the encodings in a list (in the
// order they are to be written: SET components are not sorted) and wraps the list with
// ASN1_Encode_Sequence or ASN1_Encode_Set. To decode, ASN1_Decode_Sequence or
// ASN1_Decode_Set cuts the contents into the whole elements of the components, in order,
// and the caller decodes each with the decoder it expects there.
#pragma once

#include "frame/buffer.h"
#include "frame/types.h"

namespace hylorn {

// One component. A list is named by its first node; the empty list is a null pointer.
struct ASN1_SEQUENCE {
  ASN1_SEQUENCE* next;  // null at the end
  DATA_BUFFER value;    // one whole DER element, owned by the node
};
using ASN1_SET = ASN1_SEQUENCE;  // the same node layout

// Allocates one empty, unlinked node into *node (func_no 138 / 141). Keeps the error list.
u32 new_ASN1_SEQUENCE(ASN1_SEQUENCE** node);
u32 new_ASN1_SET(ASN1_SET** node);

// Frees every node from list to the end, with its value. Null is fine. Always 0.
u32 free_ASN1_SEQUENCE(ASN1_SEQUENCE* list);
u32 free_ASN1_SET(ASN1_SET* list);

// 30 (31 for a SET), length, then every value in list order (func_no 107 / 109).
// A null list gives 30 00 / 31 00.
u32 ASN1_Encode_Sequence(const ASN1_SEQUENCE* list, DATA_BUFFER* out);
u32 ASN1_Encode_Set(const ASN1_SET* list, DATA_BUFFER* out);

// Splits one whole element into a new list at *list (func_no 108 / 110). 30 00 (31 00)
// gives a null list whatever follows it. Component tags must be one octet and are not
// examined. On failure *list is not written and nothing is left allocated.
u32 ASN1_Decode_Sequence(u32 total, const u8* der, ASN1_SEQUENCE** list);
u32 ASN1_Decode_Set(u32 total, const u8* der, ASN1_SET** list);

}  // namespace hylorn
