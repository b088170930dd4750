// Algorithm identifiers and subject public keys in DER, and the key's conversions.
//
//   AlgorithmIdentifier ::= SEQUENCE { algorithm OBJECT IDENTIFIER,
//                                      parameters ANY DEFINED BY algorithm OPTIONAL }
//   SubjectPublicKeyInfo ::= SEQUENCE { algorithm AlgorithmIdentifier,
//                                       subjectPublicKey BIT STRING }
#pragma once

#include "asn1/algorithm.h"
#include "frame/buffer.h"
#include "frame/types.h"
#include "x509/records.h"

namespace hylorn {

// The parameters element is copied verbatim; empty parameters are left out (205). The
// decoder needs both elements and a known algorithm (206).
u32 Der_Encode_X509_Alg_Id(const X509_ALG_ID* alg, DATA_BUFFER* out);
u32 Der_Decode_X509_Alg_Id(u32 total, const u8* der, X509_ALG_ID* alg);

// The key octets as a BIT STRING with 0 unused bits (211); the decoder keeps the octets
// and drops the unused-bits count (212).
u32 Der_Encode_X509_Public_Key(const X509_PUBLIC_KEY* key, DATA_BUFFER* out);
u32 Der_Decode_X509_Public_Key(u32 total, const u8* der, X509_PUBLIC_KEY* key);

u32 u2l_subjectPublicKeyInfo(const USER_X509_PUBLIC_KEY* user, X509_PUBLIC_KEY* key);  // 309
// Refuses a key of 1,024 octets or more (310).
u32 l2u_subjectPublickeyInfo(const X509_PUBLIC_KEY* key, USER_X509_PUBLIC_KEY* user);

}  // namespace hylorn
