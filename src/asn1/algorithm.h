// Algorithm identifiers, in the caller's form and in the library's internal form, and
// the conversions between them. They live here because certificates, CRLs and requests
// all carry them.
//
//   AlgorithmIdentifier ::= SEQUENCE { algorithm OBJECT IDENTIFIER,
//                                      parameters ANY DEFINED BY algorithm OPTIONAL }
#pragma once

#include "asn1/oid.h"
#include "frame/buffer.h"
#include "frame/types.h"

namespace hylorn {

inline constexpr u32 kAlgorithmParametersSize = 1024;

struct X509_ALG_ID {
  ASN1_OBJECT_ID algorithm;
  DATA_BUFFER parameters;  // the whole DER element of the parameters (05 00 for NULL), or empty
};

struct USER_X509_ALG_ID {
  u16 algorithm;  // caller algorithm number: 1 md2WithRSA, 2 md5WithRSA, 3 sha1WithRSA, 4 rsa
  u8 parameters[kAlgorithmParametersSize];
  u16 parametersLength;
};

// Empty and release both members. Keep the error list. Always 0.
u32 ini_X509_ALG_ID(X509_ALG_ID* alg);
u32 free_X509_ALG_ID(X509_ALG_ID* alg);

// Caller form -> internal form (func_no 303); alg must be empty. The caller's 3 becomes
// the OIW identifier 1.3.14.3.2.29. On failure alg is left empty.
u32 u2l_signature(const USER_X509_ALG_ID* user, X509_ALG_ID* alg);
// Internal form -> caller form (func_no 304); refuses parameters over 1,024 bytes.
u32 l2u_signature(const X509_ALG_ID* alg, USER_X509_ALG_ID* user);

}  // namespace hylorn
