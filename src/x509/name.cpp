#include "x509/name.h"

#include <cstdlib>
#include <cstring>

#include "asn1/der.h"
#include "asn1/list.h"
#include "asn1/oid.h"
#include "frame/error.h"
#include "frame/guard.h"
#include "x509/field_list.h"

namespace hylorn {
namespace {

constexpr int kFnNewName = 213;
constexpr int kFnEncodeName = 207;
constexpr int kFnDecodeName = 208;
constexpr int kFnUserToName = 305;
constexpr int kFnNameToUser = 306;

constexpr u32 kEmailAddress = 25;

// Slot -> internal identifier of its attribute type.
constexpr u32 kSlotType[kNameSlots] = {
    56,  // 0 countryName
    59,  // 1 organizationName
    60,  // 2 organizationalUnitName
    57,  // 3 stateOrProvinceName
    61,  // 4 commonName
    58,  // 5 localityName
    64,  // 6 title
    62,  // 7 surname
    70,  // 8 givenName
    71,  // 9 initials
    25,  // 10 emailAddress
    65,  // 11 postalAddress
    66,  // 12 postalCode
    72,  // 13 postOfficeBox
    67,  // 14 telephoneNumber
    68,  // 15 telexNumber
};

// Names are written with postOfficeBox after telexNumber; certificates already issued
// carry that order, so it is kept.
constexpr u32 kSlotVisitOrder[kNameSlots] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 14, 15, 13};

// Each visited slot has four error numbers, from 2 on: the node (first node of the list,
// later node), the type's identifier octets, the value copy.
constexpr int kSlotErrBase = 2;
constexpr int kSlotErrCount = 4;

// Value string decoders by tag.
struct StringDecoder {
  u8 tag;
  u32 (*decode)(u32, const u8*, DATA_BUFFER*);
  const char* name;
};
constexpr StringDecoder kStringDecoders[] = {
    {0x13, ASN1_Decode_PrintableString, "ASN1_Decode_PrintableString"},
    {0x14, ASN1_Decode_T61String, "ASN1_Decode_T61String"},
    {0x16, ASN1_Decode_IA5String, "ASN1_Decode_IA5String"},
    {0x1E, ASN1_Decode_BMPString, "ASN1_Decode_BMPString"},
};

const StringDecoder* string_decoder(u8 tag) {
  for (const StringDecoder& d : kStringDecoders) {
    if (d.tag == tag) return &d;
  }
  return nullptr;
}

// AttributeTypeAndValue wrapped alone in its SET, into out.
u32 encode_rdn(const ErrorScope& err, const X500_NAME* node, DATA_BUFFER* out) {
  FieldBuilder atv;
  DATA_BUFFER* type = atv.append();
  if (type == nullptr) return err.fail(1, "new_ASN1_SEQUENCE");
  if (ASN1_Encode_Object(node->type, type) != 0) return err.fail(2, "ASN1_Encode_Object");
  DATA_BUFFER* value = atv.append();
  if (value == nullptr) return err.fail(3, "new_ASN1_SEQUENCE");
  if (node->type.oidValue == kEmailAddress) {
    if (ASN1_Encode_IA5String(node->value, value) != 0) return err.fail(4, "ASN1_Encode_IA5String");
  } else if (ASN1_Encode_PrintableString(node->value, value) != 0) {
    return err.fail(5, "ASN1_Encode_PrintableString");
  }
  FieldBuilder rdn;
  DATA_BUFFER* member = rdn.append();
  if (member == nullptr) return err.fail(6, "new_ASN1_SET");
  if (ASN1_Encode_Sequence(atv.head(), member) != 0) return err.fail(7, "ASN1_Encode_Sequence");
  if (ASN1_Encode_Set(rdn.head(), out) != 0) return err.fail(8, "ASN1_Encode_Set");
  return 0;
}

// One RDN element: a node holding its first attribute.
u32 decode_rdn(const ErrorScope& err, const DATA_BUFFER& rdn, X500_NAME** node) {
  FieldReader set;
  if (ASN1_Decode_Set(rdn.length, rdn.data, set.out()) != 0) {
    return err.fail(4, "ASN1_Decode_Set");
  }
  const DATA_BUFFER* first = set.next();
  if (first == nullptr) return err.fail(7, "");
  FieldReader atv;
  if (ASN1_Decode_Sequence(first->length, first->data, atv.out()) != 0) {
    return err.fail(5, "ASN1_Decode_Sequence");
  }
  const DATA_BUFFER* type = atv.next();
  if (type == nullptr) return err.fail(7, "");
  ASN1_OBJECT_ID oid{};
  auto free_oid = on_exit([&] { free_ASN1_OBJECT_ID(&oid); });
  if (ASN1_Decode_Object(type->length, type->data, &oid) != 0) {
    return err.fail(8, "ASN1_Decode_Object");
  }
  if (ASN1_Find_Oid_Value(&oid) != 0) return err.fail(9, "ASN1_Find_Oid_Value");
  const DATA_BUFFER* value = atv.next();
  if (value == nullptr) return err.fail(10, "");
  if (new_X500_NAME(node) != 0) return err.fail(11, "new_X500_NAME");
  free_oid.release();
  (*node)->type = oid;
  const StringDecoder* decoder = value->length > 0 ? string_decoder(value->data[0]) : nullptr;
  if (decoder == nullptr) return err.fail(12, "type error");
  if (decoder->decode(value->length, value->data, &(*node)->value) != 0) {
    return err.fail(13, decoder->name);
  }
  return 0;
}

// Copies text into slot when it fits with its NUL; longer values are dropped.
void fill_slot(const DATA_BUFFER& value, char* slot) {
  if (value.length >= kNameSlotSize) return;
  if (value.length > 0) std::memcpy(slot, value.data, value.length);
  slot[value.length] = '\0';
}

}  // namespace

u32 new_X500_NAME(X500_NAME** node) {
  const auto err = ErrorScope::keep_list(kFnNewName);
  auto* n = static_cast<X500_NAME*>(std::malloc(sizeof(X500_NAME)));
  if (n == nullptr) return err.fail(1, "malloc");
  n->next = nullptr;
  ini_ASN1_OBJECT_ID(&n->type);
  ini_DATA_BUFFER(&n->value);
  *node = n;
  return 0;
}

u32 free_X500_NAME(X500_NAME* list) {
  while (list != nullptr) {
    X500_NAME* next = list->next;
    free_ASN1_OBJECT_ID(&list->type);
    free_DATA_BUFFER(&list->value);
    std::free(list);
    list = next;
  }
  return 0;
}

// Name ::= SEQUENCE OF RelativeDistinguishedName, one attribute per SET
u32 Der_Encode_X500_Name(const X500_NAME* list, DATA_BUFFER* out) {
  ErrorScope err(kFnEncodeName);
  FieldBuilder rdns;
  for (const X500_NAME* node = list; node != nullptr; node = node->next) {
    DATA_BUFFER* rdn = rdns.append();
    if (rdn == nullptr) return err.fail(9, "new_ASN1_SEQUENCE");
    if (encode_rdn(err, node, rdn) != 0) return 1;
  }
  if (ASN1_Encode_Sequence(rdns.head(), out) != 0) return err.fail(10, "ASN1_Encode_Sequence");
  return 0;
}

u32 Der_Decode_X500_Name(u32 total, const u8* der, X500_NAME** list) {
  ErrorScope err(kFnDecodeName);
  *list = nullptr;
  if (total < 2) return err.fail(1, "der_x500_name length error, encode error");
  FieldReader rdns;
  if (ASN1_Decode_Sequence(total, der, rdns.out()) != 0) {
    return err.fail(2, "ASN1_Decode_Sequence");
  }
  X500_NAME* head = nullptr;
  auto free_names = on_exit([&] { free_X500_NAME(head); });
  X500_NAME** tail = &head;
  for (const DATA_BUFFER* rdn = rdns.next(); rdn != nullptr; rdn = rdns.next()) {
    if (decode_rdn(err, *rdn, tail) != 0) return 1;
    tail = &(*tail)->next;
  }
  free_names.release();
  *list = head;
  return 0;
}

// One node per non-empty slot, in visiting order.
u32 u2l_X500_NAME(const USER_X500_NAME* user, X500_NAME** list) {
  ErrorScope err(kFnUserToName);
  *list = nullptr;
  X500_NAME* head = nullptr;
  auto free_names = on_exit([&] { free_X500_NAME(head); });
  X500_NAME** tail = &head;
  for (u32 i = 0; i < kNameSlots; ++i) {
    const char* text = user->slot[kSlotVisitOrder[i]];
    if (text[0] == '\0') continue;
    const int base = kSlotErrBase + kSlotErrCount * static_cast<int>(i);
    if (new_X500_NAME(tail) != 0)
      return err.fail(head == nullptr ? base : base + 1, "new_X500_NAME");
    X500_NAME* node = *tail;
    tail = &node->next;
    node->type.oidValue = kSlotType[kSlotVisitOrder[i]];
    if (ASN1_Find_Object_ID(&node->type) != 0) return err.fail(base + 2, "ASN1_Find_Object_ID");
    const auto length = static_cast<u32>(strnlen(text, kNameSlotSize - 1));
    if (copy_DATA_BUFFER(&node->value, length, reinterpret_cast<const u8*>(text)) != 0) {
      return err.fail(base + 3, "copy_DATA_BUFFER");
    }
  }
  free_names.release();
  *list = head;
  return 0;
}

u32 l2u_X500_NAME(const X500_NAME* list, USER_X500_NAME* user) {
  [[maybe_unused]] ErrorScope err(kFnNameToUser);  // never fails, but empties the list
  for (char* slot : user->slot) slot[0] = '\0';
  for (const X500_NAME* node = list; node != nullptr; node = node->next) {
    for (u32 i = 0; i < kNameSlots; ++i) {
      if (kSlotType[i] == node->type.oidValue) fill_slot(node->value, user->slot[i]);
    }
  }
  return 0;
}

}  // namespace hylorn
