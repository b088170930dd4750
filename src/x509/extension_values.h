// The value coders of the supported extensions. Encode_XEXT_ names a node (identifier
// and criticality) and builds its extnValue; Decode_XEXT_ reads a node's value into the
// internal form. The internal forms hold whatever the DER holds: the caller's limits are
// checked only when a form moves into the caller's record (extensions.cpp).
#pragma once

#include "asn1/list.h"
#include "frame/buffer.h"
#include "frame/types.h"
#include "x509/extn_list.h"
#include "x509/records.h"

namespace hylorn {

// What sets one supported extension apart: its numbers, its identifier, where its flag
// sits in CERT_EXTN_INFO, the numbers and names its four functions report under, and the
// two wrappers that move it between the caller's record and the list.
struct ExtensionKind {
  u32 number;    // caller extension number; 0 for the private extension, which has none
  u32 oidValue;  // internal identifier; 0 for the private extension (the caller names it)
  u32 CERT_EXTN_INFO::*present;
  int encode_fn, u2l_fn, decode_fn, l2u_fn;
  const char* encode_name;
  const char* u2l_name;
  const char* decode_name;
  const char* l2u_name;
  u32 (*u2l)(const ExtensionKind& kind, const CERT_EXTN_INFO& info, X509_EXTN_CONTEXT* ctx);
  // Null for the private extension: decoding never reports it.
  u32 (*l2u)(const ExtensionKind& kind, X509_EXTN_CONTEXT* ctx, CERT_EXTN_INFO* info);
};

// ---- internal forms -------------------------------------------------------------------

struct XEXT_AuthorityKeyIdentifier {
  DATA_BUFFER keyIdentifier;
  X500_NAME* authorityCertIssuer;         // the first directoryName of the GeneralNames
  DATA_BUFFER authorityCertSerialNumber;  // INTEGER content octets as they stand
  u8 keyIdentifierPresent;
  u8 authorityCertIssuerPresent;
  u8 authorityCertSerialNumberPresent;
  u8 critical;
};
void free_XEXT_AuthorityKeyIdentifier(XEXT_AuthorityKeyIdentifier* aki);

struct XEXT_PrivateKeyUsagePeriod {
  DATA_BUFFER notBefore;  // GeneralizedTime text, YYYYMMDDHHMMSSZ
  DATA_BUFFER notAfter;
  u8 notBeforePresent;
  u8 notAfterPresent;
  u8 critical;
};
void free_XEXT_PrivateKeyUsagePeriod(XEXT_PrivateKeyUsagePeriod* period);

// Policies in order; the two lists run side by side, one node per policy, and a policy
// without a CPS qualifier has an empty qualifier node. The nodes hold plain octets here,
// not DER elements.
struct XEXT_CertificatePolicies {
  ASN1_SEQUENCE* identifiers;  // OBJECT IDENTIFIER content octets
  ASN1_SEQUENCE* qualifiers;   // IA5String characters
  u8 critical;
};
void free_XEXT_CertificatePolicies(XEXT_CertificatePolicies* policies);

struct XEXT_ExtKeyUsage {
  ASN1_SEQUENCE* purposes;  // KeyPurposeId content octets, in order
  u8 critical;
};

struct XEXT_BasicConstraints {
  u8 cA;
  u8 pathLenPresent;
  u8 critical;
  u32 pathLenConstraint;
};

// SubjectKeyIdentifier's key identifier, or the hash after the SET hashedRootKey prefix.
struct XEXT_Octets {
  DATA_BUFFER octets;
  u8 critical;
};

// ---- value coders (the kind gives the function number and the identifier) ---------------

//   AuthorityKeyIdentifier ::= SEQUENCE {
//      keyIdentifier [0] KeyIdentifier OPTIONAL, authorityCertIssuer [1] GeneralNames
//      OPTIONAL, authorityCertSerialNumber [2] CertificateSerialNumber OPTIONAL }
u32 Encode_XEXT_AuthorityKeyIdentifier(const ExtensionKind& kind,
                                       const XEXT_AuthorityKeyIdentifier* aki, X509_EXTN* node);
u32 Decode_XEXT_AuthorityKeyIdentifier(const ExtensionKind& kind, const X509_EXTN* node,
                                       XEXT_AuthorityKeyIdentifier* aki);

//   GeneralNames ::= SEQUENCE SIZE (1..MAX) OF GeneralName
//   GeneralName ::= CHOICE { ..., directoryName [4] Name, ... }
// One directoryName (510). The decoder takes the first directoryName of a GeneralNames
// element whatever its identifier octet, skips the other kinds of name, and leaves
// *found 0 when there is none (561).
u32 DER_Encode_GeneralNames(const X500_NAME* name, DATA_BUFFER* out);
u32 DER_Decode_GeneralNames(const DATA_BUFFER* element, X500_NAME** name, u8* found);

//   SubjectKeyIdentifier ::= KeyIdentifier ::= OCTET STRING
u32 Encode_XEXT_SubjectKeyIdentifier(const ExtensionKind& kind,
                                     const USER_XEXT_SubjectKeyIdentifier* user, X509_EXTN* node);
u32 Decode_XEXT_SubjectKeyIdentifier(const ExtensionKind& kind, const X509_EXTN* node,
                                     XEXT_Octets* out);

//   PrivateKeyUsagePeriod ::= SEQUENCE {
//      notBefore [0] GeneralizedTime OPTIONAL, notAfter [1] GeneralizedTime OPTIONAL }
// The caller's texts are written as GeneralizedTime: their first 14 characters and "Z".
u32 Encode_XEXT_PrivateKeyUsagePeriod(const ExtensionKind& kind,
                                      const USER_XEXT_PrivateKeyUsagePeriod* user, X509_EXTN* node);
u32 Decode_XEXT_PrivateKeyUsagePeriod(const ExtensionKind& kind, const X509_EXTN* node,
                                      XEXT_PrivateKeyUsagePeriod* period);

//   certificatePolicies ::= SEQUENCE SIZE (1..MAX) OF PolicyInformation
//   PolicyInformation ::= SEQUENCE { policyIdentifier CertPolicyId,
//        policyQualifiers SEQUENCE SIZE (1..MAX) OF PolicyQualifierInfo OPTIONAL }
//   PolicyQualifierInfo ::= SEQUENCE { policyQualifierId id-qt-cps, qualifier CPSuri }
//   CPSuri ::= IA5String
u32 Encode_XEXT_CertificatePolicies(const ExtensionKind& kind,
                                    const USER_XEXT_CertificatePolicies* user, X509_EXTN* node);
u32 Decode_XEXT_CertificatePolicies(const ExtensionKind& kind, const X509_EXTN* node,
                                    XEXT_CertificatePolicies* policies);

//   BasicConstraints ::= SEQUENCE { cA BOOLEAN DEFAULT FALSE,
//                                   pathLenConstraint INTEGER (0..MAX) OPTIONAL }
// cA 0 gives the empty SEQUENCE whatever the path length (506 / 508).
u32 Encode_XEXT_BasicConstraints(u8 cA, u8 pathLenConstraint, u8 pathLenPresent, u8 critical,
                                 X509_EXTN* node);
u32 Decode_XEXT_BasicConstraints(const X509_EXTN* node, XEXT_BasicConstraints* out);

//   KeyUsage ::= BIT STRING, NetscapeCertType ::= BIT STRING, SET CertificateType ::= BIT STRING
// The low 8 bits are the first octet, bits 8 to 15 the second, which is written only
// when it is not zero; bits above 15 have no place. The value 0 is the empty BIT STRING
// 03 01 00, the DER of a named bit list with no bit set.
u32 Encode_XEXT_BitFlags(const ExtensionKind& kind, const USER_XEXT_BitFlags* user,
                         X509_EXTN* node);
u32 Decode_XEXT_BitFlags(const ExtensionKind& kind, const X509_EXTN* node, USER_XEXT_BitFlags* out);

//   ExtKeyUsageSyntax ::= SEQUENCE SIZE (1..MAX) OF KeyPurposeId
//   KeyPurposeId ::= OBJECT IDENTIFIER
u32 Encode_XEXT_ExtKeyUsage(const ExtensionKind& kind, const USER_XEXT_ExtKeyUsage* user,
                            X509_EXTN* node);
u32 Decode_XEXT_ExtKeyUsage(const ExtensionKind& kind, const X509_EXTN* node,
                            XEXT_ExtKeyUsage* out);

// The SET hashedRootKey: a fixed 29-octet prefix, then the caller's octets (562 / 564).
u32 Encode_SET_EXT_hashedRootKey(const ExtensionKind& kind, const USER_XEXT_HashedRootKey* user,
                                 X509_EXTN* node);
u32 Decode_SET_EXT_hashedRootKey(const ExtensionKind& kind, const X509_EXTN* node,
                                 XEXT_Octets* out);

// The private extension: the caller's identifier octets and value, as they stand.
u32 Encode_XEXT_Private(const ExtensionKind& kind, const USER_XEXT_Private* user, X509_EXTN* node);

}  // namespace hylorn
