// PKCS #10 certification requests (RFC 2986): the caller and internal records of the
// request information, the conversions between them, their DER, and the signed request.
//
//   CertificationRequest ::= SEQUENCE {
//        certificationRequestInfo CertificationRequestInfo,
//        signatureAlgorithm       AlgorithmIdentifier,
//        signature                BIT STRING }
//   CertificationRequestInfo ::= SEQUENCE {
//        version       INTEGER { v1(0) },
//        subject       Name,
//        subjectPKInfo SubjectPublicKeyInfo,
//        attributes    [0] Attributes }
//
// Requests made here are always signed with md5WithRSA, always carry an rsaEncryption
// key and never carry attributes (the information ends in A0 00). Reading a request
// splits it without verifying its signature.
#pragma once

#include "asn1/algorithm.h"
#include "frame/buffer.h"
#include "frame/types.h"
#include "x509/cert.h"
#include "x509/records.h"

namespace hylorn {

// The caller record the exported functions fill and unpack.
struct USER_PKCS10_CERT_REQ_INFO {
  u8 version;  // must be 0
  USER_X500_NAME subject;
  USER_X509_PUBLIC_KEY subjectPublicKeyInfo;
  u32 attributes;  // kept, but never encoded
};

struct PKCS10_CERT_REQ_INFO {
  u8 version;
  X500_NAME* subject;
  X509_PUBLIC_KEY subjectPublicKeyInfo;
  DATA_BUFFER attributes;  // the whole [0] element
};

// Record operations (they keep the error list). ini_ empties, free_ releases and empties.
u32 ini_PKCS10_CERT_REQ_INFO(PKCS10_CERT_REQ_INFO* info);  // 615
u32 free_PKCS10_CERT_REQ_INFO(PKCS10_CERT_REQ_INFO* info);
u32 ini_USER_PKCS10_CERT_REQ_INFO(USER_PKCS10_CERT_REQ_INFO* user);  // 616

// Version ::= INTEGER, one content octet (601 / 602).
u32 Der_Encode_PKCS10_Version(u8 version, DATA_BUFFER* out);
u32 Der_Decode_PKCS10_Version(u32 total, const u8* der, u8* version);

u32 u2l_pkcs10_version(u8 version, u8* out);  // 605: 0 only
u32 l2u_pkcs10_version(u8 version, u8* out);  // 606: 0 only
// Whatever the caller's word says, the attributes are the empty [0] element A0 00 (607).
u32 u2l_attributes(u32 attributes, DATA_BUFFER* out);
// Nothing of the attributes reaches the caller: the word is set to 0 (608).
u32 l2u_attributes(const DATA_BUFFER* attributes, u32* out);

// Whole record (609 / 610). A failed u2l_ releases what it built; a failed l2u_ leaves
// the caller record partly filled.
u32 u2l_USER_PKCS10_CERT_REQ_INFO(const USER_PKCS10_CERT_REQ_INFO* user,
                                  PKCS10_CERT_REQ_INFO* info);
u32 l2u_USER_PKCS10_CERT_REQ_INFO(const PKCS10_CERT_REQ_INFO* info,
                                  USER_PKCS10_CERT_REQ_INFO* user);

// The CertificationRequestInfo SEQUENCE (603 / 604). The decoder needs the four elements,
// copies the attributes element whole and ignores anything after it; on failure info
// is left empty.
u32 Der_Encode_PKCS10_CERT_REQ_INFO(const PKCS10_CERT_REQ_INFO* info, DATA_BUFFER* out);
u32 Der_Decode_PKCS10_CERT_REQ_INFO(u32 total, const u8* der, PKCS10_CERT_REQ_INFO* info);

// Caller record -> DER of the request information, in a new block (611).
u32 c2d_USER_PKCS10_CERT_REQ_INFO(const USER_PKCS10_CERT_REQ_INFO* user, DATA_BUFFER* der);
// DER of the request information -> caller record (612).
u32 d2c_USER_PKCS10_CERT_REQ(u32 total, const u8* der, USER_PKCS10_CERT_REQ_INFO* user);

// The request information signed through Crypt_Gen_Signature with key, under alg, and
// wrapped; out takes the whole request, *outLen its length (613). The output stays
// untouched on failure.
u32 Encode_PKCS10_Signed_Req(const USER_PKCS10_CERT_REQ_INFO* user, const USER_X509_ALG_ID* alg,
                             const SIGNING_KEY* key, u8* out, u32* outLen);
// Splits a signed request into the caller record; the signature is dropped unchecked
// (614).
u32 Decode_PKCS10_Signed_Req(const u8* der, u32 derLen, USER_PKCS10_CERT_REQ_INFO* user);

}  // namespace hylorn
