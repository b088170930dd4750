// The TBSCertList: its DER coder, the conversions between caller and internal form, and
// the whole-record conversions to and from DER.
//
//   TBSCertList ::= SEQUENCE {
//        version              Version OPTIONAL,  -- if present, MUST be v2
//        signature            AlgorithmIdentifier,
//        issuer               Name,
//        thisUpdate           Time,
//        nextUpdate           Time OPTIONAL,
//        revokedCertificates  SEQUENCE OF SEQUENCE {
//             userCertificate     CertificateSerialNumber,
//             revocationDate      Time,
//             crlEntryExtensions  Extensions OPTIONAL } OPTIONAL,
//        crlExtensions        [0] EXPLICIT Extensions OPTIONAL }
#pragma once

#include "crl/records.h"
#include "frame/buffer.h"
#include "frame/types.h"

namespace hylorn {

// One revoked entry to and from DER (903 / 904).
u32 Der_Encode_REVOKED_CERT(const CRL_REVOKED_CERT* entry, DATA_BUFFER* out);
u32 Der_Decode_REVOKED_CERT(u32 total, const u8* der, CRL_REVOKED_CERT* entry);

// Each optional part is written exactly when its present flag is set (901). The decoder
// sets the flags from what the DER holds; tbs has been through ini_ and is left empty
// on failure (902).
u32 Der_Encode_CRL_TBS_CERT_LIST(const CRL_TBS_CERT_LIST* tbs, DATA_BUFFER* out);
u32 Der_Decode_CRL_TBS_CERT_LIST(u32 total, const u8* der, CRL_TBS_CERT_LIST* tbs);

// The version word: 0 (v1) and 1 (v2) only, "version error" otherwise (924 / 925).
u32 u2l_crl_version(u8 version, u8* out);
u32 l2u_crl_version(u8 version, u8* out);
// A DER time to the caller's text; "tiem type error" for a time of neither type (927).
u32 l2u_crl_time(const X509_TIME* time, char text[kTimeTextSize]);

// One entry, caller to internal and back (928 / 929).
u32 u2l_REVOKED_CERT(const USER_revokedCert_INFO* user, CRL_REVOKED_CERT* entry);
u32 l2u_REVOKED_CERT(const CRL_REVOKED_CERT* entry, USER_revokedCert_INFO* user);

// Whole record (932 / 933). A failed u2l_ leaves what it built in tbs for the caller to
// free; a failed l2u_ frees the caller list it built.
u32 u2l_CRL_TBS_CERT_LIST(const USER_crlTbsCertList_INFO* user, CRL_TBS_CERT_LIST* tbs);
u32 l2u_CRL_TBS_CERT_LIST(const CRL_TBS_CERT_LIST* tbs, USER_crlTbsCertList_INFO* user);

// Caller record -> TBS DER in a new buffer (934); TBS DER -> caller record, whose
// revoked list the caller then owns (935).
u32 c2d_USER_crlTbsCertList(const USER_crlTbsCertList_INFO* user, DATA_BUFFER* der);
u32 d2c_USER_crlTbsCertList(u32 total, const u8* der, USER_crlTbsCertList_INFO* user);

}  // namespace hylorn
