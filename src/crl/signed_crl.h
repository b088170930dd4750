// Whole signed CRLs.
//
//   CertificateList ::= SEQUENCE { tbsCertList        TBSCertList,
//                                  signatureAlgorithm AlgorithmIdentifier,
//                                  signatureValue     BIT STRING }
#pragma once

#include "crl/records.h"
#include "frame/types.h"
#include "x509/cert.h"

namespace hylorn {

// TBS to DER, signed with key under the record's algorithm, wrapped into out, which the
// caller sizes for the whole CRL (936).
u32 Encode_CRL_Signed(const USER_crlTbsCertList_INFO* user, const SIGNING_KEY* key, u8* out,
                      u32* outLen);
// Splits a CRL into the caller record, whose revoked list the caller then owns. The
// signature is not verified (937).
u32 Decode_CRL_Signed(u32 total, const u8* der, USER_crlTbsCertList_INFO* user);

}  // namespace hylorn
