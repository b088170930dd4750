// The records of a certificate in its two in-memory forms.
//
// The internal (local) form is built of heap-owning records that the DER coders read and
// write: X509_TBS_CERT and its fields. The caller (USER_) form is flat and fixed-size:
// the exported functions fill it from their argument lists and unpack it into the
// caller's buffers, so every limit of a fixed field is checked when data moves into it
// (the l2u_ conversions), never in the decoders.
#pragma once

#include "asn1/algorithm.h"
#include "asn1/oid.h"
#include "frame/buffer.h"
#include "frame/types.h"

namespace hylorn {

// ---- sizes of the caller's fixed fields -------------------------------------------
inline constexpr u32 kNameSlots = 16;           // attributes of a USER_X500_NAME
inline constexpr u32 kNameSlotSize = 256;       // 255 characters and the NUL
inline constexpr u32 kTimeTextSize = 64;        // YYYYMMDDHHMMSS and the NUL, with room
inline constexpr u32 kSerialSize = 128;         // serial number content octets
inline constexpr u32 kUniqueIdSize = 128;       // unique identifier octets
inline constexpr u32 kPublicKeySize = 1024;     // subjectPublicKey octets
inline constexpr u32 kKeyIdentifierSize = 64;   // authority / subject key identifier
inline constexpr u32 kPolicySlots = 16;         // policies of a CertificatePolicies record
inline constexpr u32 kPolicyOidSize = 32;       // policy identifier content octets
inline constexpr u32 kPolicyQualifierSize = 256;
inline constexpr u32 kKeyPurposeSlots = 8;      // purposes of an ExtKeyUsage record
inline constexpr u32 kKeyPurposeSize = 32;      // purpose identifier content octets
inline constexpr u32 kHashedRootKeySize = 64;
inline constexpr u32 kPrivateOidSize = 32;      // identifier of the private extension
inline constexpr u32 kPrivateValueSize = 256;   // its extnValue octets
inline constexpr u32 kTimeTextMax = 31;         // characters an X509_TIME holds

// ---- internal form ------------------------------------------------------------------

// One attribute of a distinguished name; a name is a list in DER order.
struct X500_NAME {
  X500_NAME* next;
  ASN1_OBJECT_ID type;
  DATA_BUFFER value;  // the characters, without tag and length
};

struct X509_TIME {
  u8 type;                     // 0 UTCTime, 1 GeneralizedTime
  char text[kTimeTextMax + 1];  // as in DER, NUL-terminated: 991231235959Z, 20500101000000Z
};

struct X509_VALIDITY {
  X509_TIME notBefore;
  X509_TIME notAfter;
};

struct X509_PUBLIC_KEY {
  X509_ALG_ID algorithm;
  DATA_BUFFER subjectPublicKey;  // the BIT STRING's octets; written with 0 unused bits
};

struct X509_TBS_CERT {
  u8 version;
  DATA_BUFFER serialNumber;  // INTEGER content octets as they stand
  X509_ALG_ID signature;
  X500_NAME* issuer;
  X509_VALIDITY validity;
  X500_NAME* subject;
  X509_PUBLIC_KEY subjectPublicKeyInfo;
  BIT_DATA_BUFFER issuerUniqueID;
  BIT_DATA_BUFFER subjectUniqueID;
  DATA_BUFFER extensions;  // the whole [3] element
  u8 versionPresent;
  u8 issuerUniqueIDPresent;
  u8 subjectUniqueIDPresent;
  u8 extensionsPresent;
};

// ---- caller form ---------------------------------------------------------------------

// Slot order: C, O, OU, ST, CN, L, title, SN, GN, initials, emailAddress, postalAddress,
// postalCode, postOfficeBox, telephoneNumber, telexNumber. An empty slot is absent.
struct USER_X500_NAME {
  char slot[kNameSlots][kNameSlotSize];
};

struct USER_X509_VALIDITY {
  char notBefore[kTimeTextSize];  // YYYYMMDDHHMMSS, UTC
  char notAfter[kTimeTextSize];
};

struct USER_X509_PUBLIC_KEY {
  u8 subjectPublicKey[kPublicKeySize];  // DER of the RSAPublicKey
  u16 subjectPublicKeyLength;
  USER_X509_ALG_ID algorithm;
};

struct USER_UNIQUE_ID {
  u8 id[kUniqueIdSize];
  u16 idLength;
};

// The caller records of the extensions. Each ends with its own critical flag.

struct USER_XEXT_AuthorityKeyIdentifier {
  u32 keyIdentifierPresent;
  u8 keyIdentifier[kKeyIdentifierSize];
  u32 keyIdentifierLength;
  u32 authorityCertIssuerPresent;
  u32 nameCount;                         // directory names held (0 or 1)
  USER_X500_NAME authorityCertIssuer[1];
  u32 authorityCertSerialNumberPresent;
  u8 authorityCertSerialNumber[kSerialSize];
  u16 authorityCertSerialNumberLength;
  u32 critical;
};

struct USER_XEXT_SubjectKeyIdentifier {
  u8 keyIdentifier[kKeyIdentifierSize];
  u32 keyIdentifierLength;
  u32 critical;
};

struct USER_XEXT_PrivateKeyUsagePeriod {
  u32 notBeforePresent;
  u32 notAfterPresent;
  char notBefore[kTimeTextSize];  // YYYYMMDDHHMMSS, written as GeneralizedTime
  char notAfter[kTimeTextSize];
  u32 critical;
};

struct USER_XEXT_CertificatePolicies {
  u8 policyIdentifier[kPolicySlots][kPolicyOidSize];  // OBJECT IDENTIFIER content octets
  u32 policyIdentifierLength[kPolicySlots];
  char qualifier[kPolicySlots][kPolicyQualifierSize];  // CPS text; empty for none
  u32 count;
  u32 critical;
};

struct USER_XEXT_BasicConstraints {
  u8 cA;
  i32 pathLenConstraint;
  u8 pathLenPresent;
  u8 critical;
};

// KeyUsage, Netscape certificate type and SET certificate type: the low 8 bits are the
// BIT STRING's first octet (0x80 is named bit 0), bits 8 to 15 its second.
struct USER_XEXT_BitFlags {
  u32 bits;
  u32 critical;
};

struct USER_XEXT_ExtKeyUsage {
  u8 purpose[kKeyPurposeSlots][kKeyPurposeSize];  // KeyPurposeId content octets
  u32 purposeLength[kKeyPurposeSlots];
  u32 count;
  u32 critical;
};

struct USER_XEXT_HashedRootKey {
  u8 octets[kHashedRootKeySize];  // the SHA-1 hash of the root key: 20 octets
  u32 length;
  u32 critical;
};

struct USER_XEXT_Private {
  u8 identifier[kPrivateOidSize];  // OBJECT IDENTIFIER content octets
  u32 identifierLength;
  u8 value[kPrivateValueSize];  // extnValue octets as they stand
  u32 valueLength;
  u32 critical;
};

struct CERT_EXTN_INFO {
  u32 authorityKeyIdentifierPresent;
  u32 subjectKeyIdentifierPresent;
  u32 privateKeyUsagePeriodPresent;
  u32 certificatePoliciesPresent;
  u32 basicConstraintsPresent;
  u32 keyUsagePresent;
  u32 extKeyUsagePresent;
  u32 netscapeCertTypePresent;
  u32 setCertTypePresent;
  u32 setHashedRootKeyPresent;
  u32 privateExtensionPresent;
  USER_XEXT_AuthorityKeyIdentifier authorityKeyIdentifier;
  USER_XEXT_SubjectKeyIdentifier subjectKeyIdentifier;
  USER_XEXT_PrivateKeyUsagePeriod privateKeyUsagePeriod;
  USER_XEXT_CertificatePolicies certificatePolicies;
  USER_XEXT_BasicConstraints basicConstraints;
  USER_XEXT_BitFlags keyUsage;
  USER_XEXT_ExtKeyUsage extKeyUsage;
  USER_XEXT_BitFlags netscapeCertType;
  USER_XEXT_BitFlags setCertType;
  USER_XEXT_HashedRootKey setHashedRootKey;
  USER_XEXT_Private privateExtension;
};

struct USER_X509_TBS_CERT {
  u8 version;  // 0, 1, 2 for X.509 v1, v2, v3
  u8 serialNumber[kSerialSize];
  u16 serialNumberLength;
  USER_X509_ALG_ID signature;
  USER_X500_NAME issuer;
  USER_X509_VALIDITY validity;
  USER_X500_NAME subject;
  USER_X509_PUBLIC_KEY subjectPublicKeyInfo;
  USER_UNIQUE_ID issuerUniqueID;
  USER_UNIQUE_ID subjectUniqueID;
  CERT_EXTN_INFO extensions;
  u8 versionPresent;
  u8 issuerUniqueIDPresent;
  u8 subjectUniqueIDPresent;
  u8 extensionsPresent;
};

// ---- life cycle (record operations: they keep the error list) --------------------------
u32 ini_X509_PUBLIC_KEY(X509_PUBLIC_KEY* key);
u32 free_X509_PUBLIC_KEY(X509_PUBLIC_KEY* key);
// Empties every member; the record then owns nothing.
u32 ini_X509_TBS_CERT(X509_TBS_CERT* tbs);
// Frees serial, signature algorithm, issuer, subject, public key, unique IDs, extensions.
u32 free_X509_TBS_CERT(X509_TBS_CERT* tbs);
// Zeroes the whole caller record.
u32 ini_USER_X509_TBS_CERT(USER_X509_TBS_CERT* user);

}  // namespace hylorn
