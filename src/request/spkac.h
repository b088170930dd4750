// Netscape certificate requests: a signed public key and challenge (SPKAC). The library
// reads them and never makes them; the signature is not checked (a caller that needs
// proof of possession verifies it with the returned key).
//
//   SignedPublicKeyAndChallenge ::= SEQUENCE {
//        publicKeyAndChallenge PublicKeyAndChallenge,
//        signatureAlgorithm    AlgorithmIdentifier,
//        signature             BIT STRING }
//   PublicKeyAndChallenge ::= SEQUENCE {
//        spki      SubjectPublicKeyInfo,
//        challenge IA5String }
#pragma once

#include "frame/buffer.h"
#include "frame/types.h"
#include "x509/records.h"

namespace hylorn {

// The challenge with its NUL: longer challenges are refused.
inline constexpr u32 kChallengeSize = 1024;

struct NETSCAPE_CERT_REQ_INFO {
  X509_PUBLIC_KEY subjectPublicKeyInfo;
  DATA_BUFFER challenge;  // the IA5String's contents
};

struct USER_NETSCAPE_CERT_REQ_INFO {
  USER_X509_PUBLIC_KEY subjectPublicKeyInfo;
  char challenge[kChallengeSize];  // NUL-terminated, bytes as they came
};

// Record operations: they keep the error list and cannot fail (706 / 707).
u32 ini_NETSCAPE_CERT_REQ_INFO(NETSCAPE_CERT_REQ_INFO* info);
u32 free_NETSCAPE_CERT_REQ_INFO(NETSCAPE_CERT_REQ_INFO* info);

// The PublicKeyAndChallenge SEQUENCE: the first element as the key, the second as the
// challenge; further elements are ignored. On failure info is left empty (705).
u32 Der_Decode_NETSCAPE_CERT_REQ_INFO(u32 total, const u8* der, NETSCAPE_CERT_REQ_INFO* info);

// The challenge's bytes and a NUL; refuses what would not fit with its NUL (802).
u32 l2u_challenge(const DATA_BUFFER* challenge, char out[kChallengeSize]);
// Internal record -> caller record (702).
u32 l2u_USER_NETSCAPE_CERT_REQ_INFO(const NETSCAPE_CERT_REQ_INFO* info,
                                    USER_NETSCAPE_CERT_REQ_INFO* user);
// DER of PublicKeyAndChallenge -> caller record (703).
u32 d2c_USER_NETSCAPE_CERT_REQ_INFO(u32 total, const u8* der, USER_NETSCAPE_CERT_REQ_INFO* user);
// A whole SignedPublicKeyAndChallenge -> caller record; the signature algorithm must be
// known, the signature itself is dropped (704).
u32 Decode_Netscape_Signed_Req(const u8* der, u32 derLen, USER_NETSCAPE_CERT_REQ_INFO* user);

}  // namespace hylorn
