#include "keys/key_der.h"

#include <cstddef>
#include <cstring>
#include <span>

#include "asn1/der.h"
#include "asn1/list.h"
#include "frame/buffer.h"
#include "frame/guard.h"
#include "frame/wipe.h"

namespace hylorn {
namespace {

// Where a number lives in its packed record.
struct FieldPlace {
  std::size_t offset;
  u32 width;
};

constexpr FieldPlace kPublicFields[] = {
    {offsetof(RSA_PUBLIC_KEY, modulus), MAX_RSA_MODULUS_LEN},
    {offsetof(RSA_PUBLIC_KEY, exponent), MAX_RSA_MODULUS_LEN},
};

constexpr std::size_t kPrime = offsetof(RSA_PRIVATE_KEY, prime);
constexpr std::size_t kPrimeExponent = offsetof(RSA_PRIVATE_KEY, primeExponent);
constexpr FieldPlace kPrivateFields[] = {
    {offsetof(RSA_PRIVATE_KEY, modulus), MAX_RSA_MODULUS_LEN},
    {offsetof(RSA_PRIVATE_KEY, publicExponent), MAX_RSA_MODULUS_LEN},
    {offsetof(RSA_PRIVATE_KEY, exponent), MAX_RSA_MODULUS_LEN},
    {kPrime, MAX_RSA_PRIME_LEN},
    {kPrime + MAX_RSA_PRIME_LEN, MAX_RSA_PRIME_LEN},
    {kPrimeExponent, MAX_RSA_PRIME_LEN},
    {kPrimeExponent + MAX_RSA_PRIME_LEN, MAX_RSA_PRIME_LEN},
    {offsetof(RSA_PRIVATE_KEY, coefficient), MAX_RSA_PRIME_LEN},
};
constexpr u32 kPrivateFieldCount = sizeof kPrivateFields / sizeof kPrivateFields[0];

// Version ::= INTEGER { two-prime(0) }
constexpr u8 kVersionZero[1] = {0};

// Lists and buffers here may hold private key numbers: wipe before releasing.
void wipe_buffer(DATA_BUFFER* buf) {
  secure_wipe(buf->data, buf->length);
  free_DATA_BUFFER(buf);
}

void wipe_list(ASN1_SEQUENCE* list) {
  for (ASN1_SEQUENCE* n = list; n != nullptr; n = n->next) {
    secure_wipe(n->value.data, n->value.length);
  }
  free_ASN1_SEQUENCE(list);
}

// The INTEGER contents of a field: its bytes from the first non-zero one; an all-zero
// field gives the single byte 00. The INTEGER encoder adds the sign byte where needed.
DATA_BUFFER integer_contents(std::span<const u8> field) {
  std::size_t skip = 0;
  while (skip + 1 < field.size() && field[skip] == 0) ++skip;
  return DATA_BUFFER{static_cast<u32>(field.size() - skip), const_cast<u8*>(field.data() + skip)};
}

// SEQUENCE of one INTEGER per field, copied to der.
u32 encode_integers(std::span<const std::span<const u8>> fields, u8* der, u32* derLen) {
  ASN1_SEQUENCE* head = nullptr;
  auto free_list = on_exit([&] { wipe_list(head); });
  ASN1_SEQUENCE** slot = &head;
  for (const std::span<const u8> field : fields) {
    if (new_ASN1_SEQUENCE(slot) != 0) return 1;
    if (ASN1_Encode_Integer(integer_contents(field), &(*slot)->value) != 0) return 1;
    slot = &(*slot)->next;
  }
  DATA_BUFFER out{};
  if (ASN1_Encode_Sequence(head, &out) != 0) return 1;
  std::memcpy(der, out.data, out.length);
  *derLen = out.length;
  wipe_buffer(&out);
  return 0;
}

std::span<const u8> field_of(const void* record, FieldPlace place) {
  return {static_cast<const u8*>(record) + place.offset, place.width};
}

// Decodes the INTEGERs of the list, from its first node on, into the fields of record,
// each right-aligned. *first_length receives the length of the first value.
u32 decode_integers(const ASN1_SEQUENCE* node, std::span<const FieldPlace> places, void* record,
                    u32* first_length) {
  for (std::size_t i = 0; i < places.size(); ++i, node = node->next) {
    if (node == nullptr) return 1;
    DATA_BUFFER value{};
    if (ASN1_Decode_Integer(node->value.length, node->value.data, &value) != 0) return 1;
    auto release = on_exit([&] { wipe_buffer(&value); });
    if (value.length > places[i].width) return 1;
    if (i == 0) *first_length = value.length;
    u8* field_end = static_cast<u8*>(record) + places[i].offset + places[i].width;
    if (value.length > 0) std::memcpy(field_end - value.length, value.data, value.length);
  }
  return 0;
}

// The SEQUENCE steps both decoders share: clear the record, split the element, skip the
// leading components that are not read, then decode the INTEGERs. The record is left all
// zero on failure.
template <class Record>
u32 decode_key(const u8* der, u32 derLen, u32 skipped, std::span<const FieldPlace> places,
               Record* key, u32* first_length) {
  std::memset(key, 0, sizeof *key);
  ASN1_SEQUENCE* list = nullptr;
  if (ASN1_Decode_Sequence(derLen, der, &list) != 0) return 1;
  auto free_list = on_exit([&] { wipe_list(list); });
  const ASN1_SEQUENCE* node = list;
  for (u32 i = 0; i < skipped && node != nullptr; ++i) node = node->next;
  if (list == nullptr || decode_integers(node, places, key, first_length) != 0) {
    secure_wipe(key, sizeof *key);
    return 1;
  }
  return 0;
}

}  // namespace

u32 c2d_RSA_PUBLIC_KEY(const RSA_PUBLIC_KEY* key, u8* der, u32* derLen) {
  const std::span<const u8> fields[] = {field_of(key, kPublicFields[0]),
                                        field_of(key, kPublicFields[1])};
  return encode_integers(fields, der, derLen);
}

u32 c2d_RSA_PRIVATE_KEY(const RSA_PRIVATE_KEY* key, u8* der, u32* derLen) {
  std::span<const u8> fields[1 + kPrivateFieldCount] = {kVersionZero};
  for (u32 i = 0; i < kPrivateFieldCount; ++i) fields[1 + i] = field_of(key, kPrivateFields[i]);
  return encode_integers(fields, der, derLen);
}

u32 d2c_RSA_PUBLIC_KEY(const u8* der, u32 derLen, RSA_PUBLIC_KEY* key) {
  u32 modulus_length = 0;
  if (decode_key(der, derLen, 0, kPublicFields, key, &modulus_length) != 0) return 1;
  key->bits = modulus_length <= RSA_SMALL_MODULUS_LEN ? 512 : 1024;
  return 0;
}

u32 d2c_RSA_PRIVATE_KEY(const u8* der, u32 derLen, RSA_PRIVATE_KEY* key) {
  u32 modulus_length = 0;
  if (decode_key(der, derLen, 1, kPrivateFields, key, &modulus_length) != 0) return 1;
  key->bits = MAX_RSA_MODULUS_BITS;
  return 0;
}

}  // namespace hylorn
