// Whole certificates: the caller record to and from TBS DER, and the signed certificate.
//
//   Certificate ::= SEQUENCE { tbsCertificate     TBSCertificate,
//                              signatureAlgorithm AlgorithmIdentifier,
//                              signatureValue     BIT STRING }
#pragma once

#include "asn1/algorithm.h"
#include "frame/types.h"
#include "x509/records.h"

namespace hylorn {

inline constexpr u32 kTbsMaxSize = 8192;     // working buffer of the TBS DER
inline constexpr u32 kSignatureSize = 128;   // signature octets a caller receives
inline constexpr u32 kKeyNameSize = 128;

// Who signs: the key name of Crypt_Gen_Signature and the text that travels with it.
struct SIGNING_KEY {
  u16 unused;
  char keyName[kKeyNameSize];
  char keySecondText[kKeyNameSize];
};

// Caller record -> TBS DER into der (kTbsMaxSize bytes) (315).
u32 c2d_USER_X509_TBS_CERT(const USER_X509_TBS_CERT* user, u8* der, u32* derLen);
// TBS DER -> caller record (316).
u32 d2c_USER_X509_TBS_CERT(const u8* der, u32 derLen, USER_X509_TBS_CERT* user);

// TBS to DER, signed with key under alg, wrapped; out needs HYLORN_CERT_DER_SIZE (317).
u32 Encode_X509_Signed_Cert(const USER_X509_TBS_CERT* user, const USER_X509_ALG_ID* alg,
                            const SIGNING_KEY* key, u8* out, u32* outLen);
// Splits a certificate: caller record, outer algorithm, signature octets (sig needs
// kSignatureSize). Verifies nothing (318).
u32 Decode_X509_Signed_Cert(const u8* der, u32 derLen, USER_X509_TBS_CERT* user,
                            USER_X509_ALG_ID* alg, u8* sig, u32* sigLen);

}  // namespace hylorn
