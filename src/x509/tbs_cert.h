// The TBSCertificate: its small fields (version, serial number, unique identifiers), the
// whole-record DER coder, and the whole-record conversions between caller and internal
// form.
//
//   TBSCertificate ::= SEQUENCE {
//        version         [0]  EXPLICIT Version DEFAULT v1,
//        serialNumber         CertificateSerialNumber,
//        signature            AlgorithmIdentifier,
//        issuer               Name,
//        validity             Validity,
//        subject              Name,
//        subjectPublicKeyInfo SubjectPublicKeyInfo,
//        issuerUniqueID  [1]  IMPLICIT UniqueIdentifier OPTIONAL,
//        subjectUniqueID [2]  IMPLICIT UniqueIdentifier OPTIONAL,
//        extensions      [3]  EXPLICIT Extensions OPTIONAL }
#pragma once

#include "asn1/list.h"
#include "frame/buffer.h"
#include "frame/types.h"
#include "x509/records.h"

namespace hylorn {

u32 Der_Encode_Version(u8 version, DATA_BUFFER* out);                        // 201: A0 { INTEGER }
u32 Der_Decode_Version(u32 total, const u8* der, u8* version);               // 202
u32 Der_Encode_serialNumber(DATA_BUFFER serial, DATA_BUFFER* out);           // 203
u32 Der_Decode_serialNumber(u32 total, const u8* der, DATA_BUFFER* serial);  // 204

// BIT STRINGs with their tag rewritten to 81 / 82. The decoders rewrite the first octet
// of the caller's element to 03 in place before reading it.
u32 Der_Encode_X509_issuerUniqueID(BIT_DATA_BUFFER id, DATA_BUFFER* out);      // 215
u32 Der_Decode_X509_issuerUniqueID(u32 total, u8* der, BIT_DATA_BUFFER* id);   // 216
u32 Der_Encode_X509_subjectUniqueID(BIT_DATA_BUFFER id, DATA_BUFFER* out);     // 217
u32 Der_Decode_X509_subjectUniqueID(u32 total, u8* der, BIT_DATA_BUFFER* id);  // 218

u32 Der_Encode_X509_Tbs_Cert(const X509_TBS_CERT* tbs, DATA_BUFFER* out);  // 219
// Sets the four presence flags from the first octets of the elements (220).
u32 Scan_X509_Tbs_Cert(const ASN1_SEQUENCE* list, X509_TBS_CERT* tbs);
// tbs has been through ini_X509_TBS_CERT; on failure it is left empty (221).
u32 Der_Decode_X509_Tbs_Cert(u32 total, const u8* der, X509_TBS_CERT* tbs);

// Copies a version of at most last, else (func_no, 1, "version error"). Certificates,
// CRLs and requests each check theirs through it under their own function numbers.
u32 check_version(int func_no, u8 last, u8 version, u8* out);
u32 u2l_version(u8 version, u8* out);  // 319: 0, 1, 2 only
u32 l2u_version(u8 version, u8* out);  // 320
// Copies length octets as they are, 0 included (301).
u32 u2l_serialNumber(const u8* serial, u32 length, DATA_BUFFER* out);
// Accepts 1 to 128 octets (302).
u32 l2u_serialNumber(const DATA_BUFFER* serial, u8 out[kSerialSize], u16* length);
u32 u2l_certUniqueID(const USER_UNIQUE_ID* user, BIT_DATA_BUFFER* id);  // 311
u32 l2u_certUniqueID(const BIT_DATA_BUFFER* id, USER_UNIQUE_ID* user);  // 312: under 128

// Whole record (313 / 314). A failed u2l_ leaves what it built in tbs for the caller
// to free.
u32 u2l_USER_X509_TBS_CERT(const USER_X509_TBS_CERT* user, X509_TBS_CERT* tbs);
u32 l2u_USER_X509_TBS_CERT(const X509_TBS_CERT* tbs, USER_X509_TBS_CERT* user);

}  // namespace hylorn
