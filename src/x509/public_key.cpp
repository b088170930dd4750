#include "x509/public_key.h"

#include <cstdlib>
#include <cstring>

#include "asn1/der.h"
#include "frame/error.h"
#include "frame/guard.h"
#include "x509/field_list.h"

namespace hylorn {
namespace {

constexpr int kFnEncodeAlgId = 205;
constexpr int kFnDecodeAlgId = 206;
constexpr int kFnEncodeKey = 211;
constexpr int kFnDecodeKey = 212;
constexpr int kFnUserToKey = 309;
constexpr int kFnKeyToUser = 310;

}  // namespace

// AlgorithmIdentifier ::= SEQUENCE { algorithm OBJECT IDENTIFIER, parameters ANY OPTIONAL }
u32 Der_Encode_X509_Alg_Id(const X509_ALG_ID* alg, DATA_BUFFER* out) {
  ErrorScope err(kFnEncodeAlgId);
  FieldBuilder parts;
  DATA_BUFFER* oid = parts.append();
  if (oid == nullptr) return err.fail(1, "new_ASN1_SEQUENCE");
  if (ASN1_Encode_Object(alg->algorithm, oid) != 0) return err.fail(2, "ASN1_Encode_Object");
  DATA_BUFFER* parameters = parts.append();
  if (parameters == nullptr) return err.fail(3, "new_ASN1_SEQUENCE");
  if (copy_DATA_BUFFER(parameters, alg->parameters.length, alg->parameters.data) != 0) {
    return err.fail(4, "copy_DATA_BUFFER");
  }
  if (ASN1_Encode_Sequence(parts.head(), out) != 0) return err.fail(5, "ASN1_Encode_Sequence");
  return 0;
}

// Both components are required: an identifier without parameters is refused.
u32 Der_Decode_X509_Alg_Id(u32 total, const u8* der, X509_ALG_ID* alg) {
  ErrorScope err(kFnDecodeAlgId);
  FieldReader parts;
  if (ASN1_Decode_Sequence(total, der, parts.out()) != 0) {
    return err.fail(1, "ASN1_Decode_Sequence");
  }
  const DATA_BUFFER* oid = parts.next();
  if (oid == nullptr) return err.fail(2, "");
  ASN1_OBJECT_ID algorithm{};
  auto free_oid = on_exit([&] { free_ASN1_OBJECT_ID(&algorithm); });
  if (ASN1_Decode_Object(oid->length, oid->data, &algorithm) != 0) {
    return err.fail(3, "ASN1_Decode_Object");
  }
  if (ASN1_Find_Oid_Value(&algorithm) != 0) return err.fail(4, "ASN1_Find_Oid_Value");
  const DATA_BUFFER* parameters = parts.next();
  if (parameters == nullptr) return err.fail(5, "");
  if (copy_DATA_BUFFER(&alg->parameters, parameters->length, parameters->data) != 0) {
    return err.fail(6, "copy_DATA_BUFFER");
  }
  free_oid.release();
  alg->algorithm = algorithm;
  return 0;
}

// SubjectPublicKeyInfo ::= SEQUENCE { algorithm AlgorithmIdentifier,
//                                     subjectPublicKey BIT STRING }
u32 Der_Encode_X509_Public_Key(const X509_PUBLIC_KEY* key, DATA_BUFFER* out) {
  ErrorScope err(kFnEncodeKey);
  FieldBuilder parts;
  DATA_BUFFER* algorithm = parts.append();
  if (algorithm == nullptr) return err.fail(1, "new_ASN1_SEQUENCE");
  if (Der_Encode_X509_Alg_Id(&key->algorithm, algorithm) != 0) {
    return err.fail(2, "Der_Encode_X509_Alg_Id");
  }
  DATA_BUFFER* bits = parts.append();
  if (bits == nullptr) return err.fail(3, "new_ASN1_SEQUENCE");
  const BIT_DATA_BUFFER octets{key->subjectPublicKey.length, 0, key->subjectPublicKey.data};
  if (ASN1_Encode_Bit_String(octets, bits) != 0) return err.fail(4, "ASN1_Encode_Bit_String");
  if (ASN1_Encode_Sequence(parts.head(), out) != 0) return err.fail(5, "ASN1_Encode_Sequence");
  return 0;
}

u32 Der_Decode_X509_Public_Key(u32 total, const u8* der, X509_PUBLIC_KEY* key) {
  ErrorScope err(kFnDecodeKey);
  FieldReader parts;
  if (ASN1_Decode_Sequence(total, der, parts.out()) != 0) {
    return err.fail(2, "ASN1_Decode_Sequence");
  }
  const DATA_BUFFER* algorithm = parts.next();
  if (algorithm == nullptr) return err.fail(3, "");
  if (Der_Decode_X509_Alg_Id(algorithm->length, algorithm->data, &key->algorithm) != 0) {
    return err.fail(4, "Der_Decode_X509_Alg_Id");
  }
  auto free_algorithm = on_exit([&] { free_X509_ALG_ID(&key->algorithm); });
  const DATA_BUFFER* bits = parts.next();
  if (bits == nullptr) return err.fail(5, "");
  BIT_DATA_BUFFER octets{};
  if (ASN1_Decode_Bit_String(bits->length, bits->data, &octets) != 0) {
    return err.fail(6, "ASN1_Decode_Bit_String");
  }
  // The octets move over as they are; the unused-bits count is not kept.
  key->subjectPublicKey = DATA_BUFFER{octets.length, octets.data};
  free_algorithm.release();
  return 0;
}

u32 u2l_subjectPublicKeyInfo(const USER_X509_PUBLIC_KEY* user, X509_PUBLIC_KEY* key) {
  ErrorScope err(kFnUserToKey);
  const u32 length = user->subjectPublicKeyLength;
  u8* octets = nullptr;
  if (length > 0) {
    octets = static_cast<u8*>(std::malloc(length));
    if (octets == nullptr) return err.fail(63, "malloc");
    std::memcpy(octets, user->subjectPublicKey, length);
  }
  key->subjectPublicKey = DATA_BUFFER{length, octets};
  if (u2l_signature(&user->algorithm, &key->algorithm) != 0) {
    free_DATA_BUFFER(&key->subjectPublicKey);
    return err.fail(2, "u2l_signature");
  }
  return 0;
}

u32 l2u_subjectPublickeyInfo(const X509_PUBLIC_KEY* key, USER_X509_PUBLIC_KEY* user) {
  ErrorScope err(kFnKeyToUser);
  const u32 length = key->subjectPublicKey.length;
  if (length >= kPublicKeySize) return err.fail(1, "subject public key too long");
  if (length > 0) std::memcpy(user->subjectPublicKey, key->subjectPublicKey.data, length);
  user->subjectPublicKeyLength = static_cast<u16>(length);
  if (l2u_signature(&key->algorithm, &user->algorithm) != 0) {
    return err.fail(2, "l2u_signature");
  }
  return 0;
}

}  // namespace hylorn
