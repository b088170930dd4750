#include "asn1/oid.h"

#include <cstring>

#include "frame/error.h"

namespace hylorn {
namespace {

constexpr int kFnFindObjectId = 101;
constexpr int kFnFindOidValue = 102;

// Walked from the start on every lookup and ended by oidValue 0. 85 is not assigned;
// 5 and 6 are placeholders; 9 and 11 repeat the octets of 1 and 2, so reading those
// octets always gives 1 and 2. 101 to 105 sit directly under id-pkix (1.3.6.1.5.5.7)
// without the key-purpose arc 3: certificates carry exactly these octets.
constexpr OidEntry kObjectIds[] = {
    {1, 9, "\x2A\x86\x48\x86\xF7\x0D\x01\x01\x02"},   // 1.2.840.113549.1.1.2 md2WithRSAEncryption
    {2, 9, "\x2A\x86\x48\x86\xF7\x0D\x01\x01\x04"},   // 1.2.840.113549.1.1.4 md5WithRSAEncryption
    {3, 5, "\x2B\x0E\x03\x02\x1D"},                   // 1.3.14.3.2.29 sha1WithRSASignature (OIW)
    {4, 5, "\x2A\xCE\x38\x04\x03"},                   // 1.2.10040.4.3 dsa-with-sha1 (X9.57)
    {5, 1, "\x00"},                                   // 0.0 placeholder
    {6, 1, "\x00"},                                   // 0.0 placeholder
    {7, 8, "\x2A\x86\x48\x86\xF7\x0D\x01\x01"},       // 1.2.840.113549.1.1 pkcs-1
    {8, 9, "\x2A\x86\x48\x86\xF7\x0D\x01\x01\x01"},   // 1.2.840.113549.1.1.1 rsaEncryption
    {9, 9, "\x2A\x86\x48\x86\xF7\x0D\x01\x01\x02"},   // 1.2.840.113549.1.1.2 repeats 1
    {10, 9, "\x2A\x86\x48\x86\xF7\x0D\x01\x01\x03"},  // 1.2.840.113549.1.1.3 md4WithRSAEncryption
    {11, 9, "\x2A\x86\x48\x86\xF7\x0D\x01\x01\x04"},  // 1.2.840.113549.1.1.4 repeats 2
    {12, 8, "\x2A\x86\x48\x86\xF7\x0D\x01\x03"},      // 1.2.840.113549.1.3 pkcs-3
    {13, 9, "\x2A\x86\x48\x86\xF7\x0D\x01\x03\x01"},  // 1.2.840.113549.1.3.1 dhKeyAgreement
    {14, 8, "\x2A\x86\x48\x86\xF7\x0D\x01\x05"},      // 1.2.840.113549.1.5 pkcs-5
    {15, 9, "\x2A\x86\x48\x86\xF7\x0D\x01\x05\x01"},  // 1.2.840.113549.1.5.1 pbeWithMD2AndDES-CBC
    {16, 9, "\x2A\x86\x48\x86\xF7\x0D\x01\x05\x03"},  // 1.2.840.113549.1.5.3 pbeWithMD5AndDES-CBC
    {17, 8, "\x2A\x86\x48\x86\xF7\x0D\x01\x07"},      // 1.2.840.113549.1.7 pkcs-7
    {18, 9, "\x2A\x86\x48\x86\xF7\x0D\x01\x07\x01"},  // 1.2.840.113549.1.7.1 data
    {19, 9, "\x2A\x86\x48\x86\xF7\x0D\x01\x07\x02"},  // 1.2.840.113549.1.7.2 signedData
    {20, 9, "\x2A\x86\x48\x86\xF7\x0D\x01\x07\x03"},  // 1.2.840.113549.1.7.3 envelopedData
    {21, 9, "\x2A\x86\x48\x86\xF7\x0D\x01\x07\x04"},  // 1.2.840.113549.1.7.4 signedAndEnvelopedData
    {22, 9, "\x2A\x86\x48\x86\xF7\x0D\x01\x07\x05"},  // 1.2.840.113549.1.7.5 digestedData
    {23, 9, "\x2A\x86\x48\x86\xF7\x0D\x01\x07\x06"},  // 1.2.840.113549.1.7.6 encryptedData
    {24, 8, "\x2A\x86\x48\x86\xF7\x0D\x01\x09"},      // 1.2.840.113549.1.9 pkcs-9
    {25, 9, "\x2A\x86\x48\x86\xF7\x0D\x01\x09\x01"},  // 1.2.840.113549.1.9.1 emailAddress
    {26, 9, "\x2A\x86\x48\x86\xF7\x0D\x01\x09\x02"},  // 1.2.840.113549.1.9.2 unstructuredName
    {27, 9, "\x2A\x86\x48\x86\xF7\x0D\x01\x09\x03"},  // 1.2.840.113549.1.9.3 contentType
    {28, 9, "\x2A\x86\x48\x86\xF7\x0D\x01\x09\x04"},  // 1.2.840.113549.1.9.4 messageDigest
    {29, 9, "\x2A\x86\x48\x86\xF7\x0D\x01\x09\x05"},  // 1.2.840.113549.1.9.5 signingTime
    {30, 9, "\x2A\x86\x48\x86\xF7\x0D\x01\x09\x06"},  // 1.2.840.113549.1.9.6 countersignature
    {31, 9, "\x2A\x86\x48\x86\xF7\x0D\x01\x09\x07"},  // 1.2.840.113549.1.9.7 challengePassword
    {32, 9, "\x2A\x86\x48\x86\xF7\x0D\x01\x09\x08"},  // 1.2.840.113549.1.9.8 unstructuredAddress
    {33, 9, "\x2A\x86\x48\x86\xF7\x0D\x01\x09\x09"},  // 1.2.840.113549.1.9.9 extendedCertAttrs
    {34, 8, "\x2A\x86\x48\x86\xF7\x0D\x02\x02"},      // 1.2.840.113549.2.2 md2
    {35, 8, "\x2A\x86\x48\x86\xF7\x0D\x02\x04"},      // 1.2.840.113549.2.4 md4
    {36, 8, "\x2A\x86\x48\x86\xF7\x0D\x02\x05"},      // 1.2.840.113549.2.5 md5
    {37, 5, "\x2B\x0E\x03\x02\x06"},                  // 1.3.14.3.2.6 desECB (OIW)
    {38, 5, "\x2B\x0E\x03\x02\x09"},                  // 1.3.14.3.2.9 desMAC (OIW)
    {39, 5, "\x2B\x0E\x03\x02\x07"},                  // 1.3.14.3.2.7 desCBC (OIW)
    {40, 5, "\x2B\x0E\x03\x02\x11"},                  // 1.3.14.3.2.17 desEDE (OIW)
    {41, 8, "\x2A\x86\x48\x86\xF7\x0D\x03\x02"},      // 1.2.840.113549.3.2 rc2CBC
    {42, 8, "\x2A\x86\x48\x86\xF7\x0D\x03\x04"},      // 1.2.840.113549.3.4 rc4
    {43, 5, "\x2B\x0E\x03\x02\x12"},                  // 1.3.14.3.2.18 sha (OIW, SHA-0)
    {44, 5, "\x2B\x0E\x03\x02\x0F"},                  // 1.3.14.3.2.15 shaWithRSASignature (OIW)
    {45, 8, "\x2A\x86\x48\x86\xF7\x0D\x03\x07"},      // 1.2.840.113549.3.7 des-ede3-cbc
    {46, 5, "\x2B\x0E\x03\x02\x08"},                  // 1.3.14.3.2.8 desOFB (OIW)
    {47, 5, "\x2B\x0E\x03\x02\x1A"},                  // 1.3.14.3.2.26 sha1 (OIW)
    {48, 9, "\x2A\x86\x48\x86\xF7\x0D\x01\x01\x05"},  // 1.2.840.113549.1.1.5 sha1WithRSAEncryption
    {49, 5, "\x2B\x0E\x03\x02\x0D"},                  // 1.3.14.3.2.13 dsaWithSHA (OIW)
    {50, 5, "\x2B\x0E\x03\x02\x0C"},                  // 1.3.14.3.2.12 dsa (OIW)
    {51, 9, "\x2A\x86\x48\x86\xF7\x0D\x01\x05\x0B"},  // 1.2.840.113549.1.5.11 pbeWithSHA1AndRC2-CBC
    {52, 9, "\x2A\x86\x48\x86\xF7\x0D\x01\x05\x0C"},  // 1.2.840.113549.1.5.12 id-PBKDF2
    {53, 5, "\x2B\x0E\x03\x02\x1B"},                  // 1.3.14.3.2.27 dsaWithSHA1 (OIW)
    {54, 4, "\x55\x08\x03\x65"},                      // 2.5.8.3.101 mdc2
    {55, 4, "\x55\x08\x03\x64"},                      // 2.5.8.3.100 mdc2WithRSA
    {56, 3, "\x55\x04\x06"},                          // 2.5.4.6 countryName
    {57, 3, "\x55\x04\x08"},                          // 2.5.4.8 stateOrProvinceName
    {58, 3, "\x55\x04\x07"},                          // 2.5.4.7 localityName
    {59, 3, "\x55\x04\x0A"},                          // 2.5.4.10 organizationName
    {60, 3, "\x55\x04\x0B"},                          // 2.5.4.11 organizationalUnitName
    {61, 3, "\x55\x04\x03"},                          // 2.5.4.3 commonName
    {62, 3, "\x55\x04\x04"},                          // 2.5.4.4 surname
    {63, 3, "\x55\x04\x09"},                          // 2.5.4.9 streetAddress
    {64, 3, "\x55\x04\x0C"},                          // 2.5.4.12 title
    {65, 3, "\x55\x04\x10"},                          // 2.5.4.16 postalAddress
    {66, 3, "\x55\x04\x11"},                          // 2.5.4.17 postalCode
    {67, 3, "\x55\x04\x14"},                          // 2.5.4.20 telephoneNumber
    {68, 3, "\x55\x04\x15"},                          // 2.5.4.21 telexNumber
    {69, 3, "\x55\x04\x18"},                          // 2.5.4.24 x121Address
    {70, 3, "\x55\x04\x2A"},                          // 2.5.4.42 givenName
    {71, 3, "\x55\x04\x2B"},                          // 2.5.4.43 initials
    {72, 3, "\x55\x04\x12"},                          // 2.5.4.18 postOfficeBox
    {73, 3, "\x55\x1D\x23"},                          // 2.5.29.35 authorityKeyIdentifier
    {74, 3, "\x55\x1D\x0E"},                          // 2.5.29.14 subjectKeyIdentifier
    {75, 3, "\x55\x1D\x0F"},                          // 2.5.29.15 keyUsage
    {76, 3, "\x55\x1D\x10"},                          // 2.5.29.16 privateKeyUsagePeriod
    {77, 3, "\x55\x1D\x20"},                          // 2.5.29.32 certificatePolicies
    {78, 3, "\x55\x1D\x21"},                          // 2.5.29.33 policyMappings
    {79, 3, "\x55\x1D\x11"},                          // 2.5.29.17 subjectAltName
    {80, 3, "\x55\x1D\x12"},                          // 2.5.29.18 issuerAltName
    {81, 3, "\x55\x1D\x09"},                          // 2.5.29.9 subjectDirectoryAttributes
    {82, 3, "\x55\x1D\x13"},                          // 2.5.29.19 basicConstraints
    {83, 3, "\x55\x1D\x1E"},                          // 2.5.29.30 nameConstraints
    {84, 3, "\x55\x1D\x24"},                          // 2.5.29.36 policyConstraints
    {86, 3, "\x55\x1D\x25"},                          // 2.5.29.37 extKeyUsage
    {87, 3, "\x55\x1D\x14"},                          // 2.5.29.20 cRLNumber
    {88, 3, "\x55\x1D\x1C"},                          // 2.5.29.28 issuingDistributionPoint
    {89, 3, "\x55\x1D\x1B"},                          // 2.5.29.27 deltaCRLIndicator
    {90, 3, "\x55\x1D\x1D"},                          // 2.5.29.29 certificateIssuer
    {91, 3, "\x55\x1D\x15"},                          // 2.5.29.21 cRLReason
    {92, 3, "\x55\x1D\x17"},                          // 2.5.29.23 holdInstructionCode
    {93, 3, "\x55\x1D\x18"},                          // 2.5.29.24 invalidityDate
    {94, 8, "\x2B\x06\x01\x05\x05\x07\x02\x01"},      // 1.3.6.1.5.5.7.2.1 id-qt-cps
    {95, 8, "\x2B\x06\x01\x05\x05\x07\x02\x02"},      // 1.3.6.1.5.5.7.2.2 id-qt-unotice
    {96, 8, "\x2B\x06\x01\x05\x05\x07\x30\x01"},      // 1.3.6.1.5.5.7.48.1 id-ad-ocsp
    {97, 8, "\x2B\x06\x01\x05\x05\x07\x30\x02"},      // 1.3.6.1.5.5.7.48.2 id-ad-caIssuers
    {98, 8, "\x2B\x06\x01\x05\x05\x07\x03\x01"},      // 1.3.6.1.5.5.7.3.1 id-kp-serverAuth
    {99, 8, "\x2B\x06\x01\x05\x05\x07\x03\x02"},      // 1.3.6.1.5.5.7.3.2 id-kp-clientAuth
    {100, 8, "\x2B\x06\x01\x05\x05\x07\x03\x03"},     // 1.3.6.1.5.5.7.3.3 id-kp-codeSigning
    {101, 7, "\x2B\x06\x01\x05\x05\x07\x04"},         // 1.3.6.1.5.5.7.4 without the arc 3
    {102, 7, "\x2B\x06\x01\x05\x05\x07\x05"},         // 1.3.6.1.5.5.7.5 without the arc 3
    {103, 7, "\x2B\x06\x01\x05\x05\x07\x06"},         // 1.3.6.1.5.5.7.6 without the arc 3
    {104, 7, "\x2B\x06\x01\x05\x05\x07\x07"},         // 1.3.6.1.5.5.7.7 without the arc 3
    {105, 7, "\x2B\x06\x01\x05\x05\x07\x08"},         // 1.3.6.1.5.5.7.8 without the arc 3
    {106, 9, "\x60\x86\x48\x01\x86\xF8\x42\x01\x01"},  // 2.16.840.1.113730.1.1 ns-cert-type
    {107, 9, "\x60\x86\x48\x01\x86\xF8\x42\x01\x02"},  // 2.16.840.1.113730.1.2 ns-base-url
    {108, 9, "\x60\x86\x48\x01\x86\xF8\x42\x01\x03"},  // 2.16.840.1.113730.1.3 ns-revocation-url
    {109, 9, "\x60\x86\x48\x01\x86\xF8\x42\x01\x04"},  // 2.16.840.1.113730.1.4 ns-ca-revocation-url
    {110, 9, "\x60\x86\x48\x01\x86\xF8\x42\x01\x07"},  // 2.16.840.1.113730.1.7 ns-cert-renewal-url
    {111, 9, "\x60\x86\x48\x01\x86\xF8\x42\x01\x08"},  // 2.16.840.1.113730.1.8 ns-ca-policy-url
    {112, 9, "\x60\x86\x48\x01\x86\xF8\x42\x01\x0C"},  // 2.16.840.1.113730.1.12 ns-ssl-server-name
    {113, 9, "\x60\x86\x48\x01\x86\xF8\x42\x01\x0D"},  // 2.16.840.1.113730.1.13 ns-comment
    {114, 9, "\x60\x86\x48\x01\x86\xF8\x42\x02\x05"},  // 2.16.840.1.113730.2.5 ns-cert-sequence
    {115, 4, "\x67\x2A\x07\x00"},                      // 2.23.42.7.0 SET hashedRootKey
    {116, 4, "\x67\x2A\x07\x01"},                      // 2.23.42.7.1 SET certificateType
    {117, 4, "\x67\x2A\x07\x02"},                      // 2.23.42.7.2 SET merchantData
    {118, 4, "\x67\x2A\x07\x03"},                      // 2.23.42.7.3 SET cardCertRequired
    {119, 4, "\x67\x2A\x07\x04"},                      // 2.23.42.7.4 SET tunneling
    {120, 4, "\x67\x2A\x07\x05"},                      // 2.23.42.7.5 SET setExtensions
    {121, 4, "\x67\x2A\x07\x06"},                      // 2.23.42.7.6 SET setQualifier
    {122, 8, "\x60\x86\x48\x01\x86\xF8\x43\x01"},      // 2.16.840.1.113731.1 private arc
    {123, 8, "\x60\x86\x48\x01\x86\xF8\x43\x02"},      // 2.16.840.1.113731.2 private arc
    {124, 8, "\x60\x86\x48\x01\x86\xF8\x43\x03"},      // 2.16.840.1.113731.3 private arc
    {125, 8, "\x60\x86\x48\x01\x86\xF8\x43\x04"},      // 2.16.840.1.113731.4 private arc
    {126, 8, "\x60\x86\x48\x01\x86\xF8\x43\x0A"},      // 2.16.840.1.113731.10 private arc
    {127, 8, "\x60\x86\x48\x01\x86\xF8\x43\x0B"},      // 2.16.840.1.113731.11 private arc
    {128, 8, "\x60\x86\x48\x01\x86\xF8\x43\x0C"},      // 2.16.840.1.113731.12 private arc
    {129, 8, "\x60\x86\x48\x01\x86\xF8\x43\x0D"},      // 2.16.840.1.113731.13 private arc
    {130, 8, "\x60\x86\x48\x01\x86\xF8\x43\x0E"},      // 2.16.840.1.113731.14 private arc
    {131, 8, "\x60\x86\x48\x01\x86\xF8\x43\x0F"},      // 2.16.840.1.113731.15 private arc
    {132, 8, "\x60\x86\x48\x01\x86\xF8\x43\x10"},      // 2.16.840.1.113731.16 private arc
    {133, 8, "\x60\x86\x48\x01\x86\xF8\x43\x11"},      // 2.16.840.1.113731.17 private arc
    {134, 8, "\x60\x86\x48\x01\x86\xF8\x43\x12"},      // 2.16.840.1.113731.18 private arc
    {135, 8, "\x60\x86\x48\x01\x86\xF8\x43\x13"},      // 2.16.840.1.113731.19 private arc
    {0, 0, ""},
};

struct AlgorithmCode {
  u32 oidValue;
  u32 number;
};

// The caller's 3 is written as the OIW identifier; both SHA-1 identifiers read back as 3.
constexpr AlgorithmCode kAlgorithmCodes[] = {
    {1, 1},   // md2WithRSAEncryption
    {2, 2},   // md5WithRSAEncryption
    {3, 3},   // sha1WithRSASignature, 1.3.14.3.2.29
    {48, 3},  // sha1WithRSAEncryption, 1.2.840.113549.1.1.5
    {8, 4},   // rsaEncryption
    {0, 0},
};

}  // namespace

std::span<const OidEntry> object_id_table() {
  return {kObjectIds, std::size(kObjectIds) - 1};
}

u32 ini_ASN1_OBJECT_ID(ASN1_OBJECT_ID* obj) {
  obj->oidValue = 0;
  return ini_DATA_BUFFER(&obj->oid);
}

u32 free_ASN1_OBJECT_ID(ASN1_OBJECT_ID* obj) {
  return free_DATA_BUFFER(&obj->oid);
}

u32 ASN1_Find_Object_ID(ASN1_OBJECT_ID* obj) {
  ErrorScope err(kFnFindObjectId);
  for (const OidEntry* e = kObjectIds; e->oidValue != 0; ++e) {
    if (e->oidValue != obj->oidValue) continue;
    if (copy_DATA_BUFFER(&obj->oid, e->length, e->octets) != 0) {
      return err.fail(2, "copy DATA_BUFFER");
    }
    return 0;
  }
  return err.fail_with(2, 1, "ASN1 oidValue not found");
}

u32 ASN1_Find_Oid_Value(ASN1_OBJECT_ID* obj) {
  ErrorScope err(kFnFindOidValue);
  const u32 n = obj->oid.length;
  // Most identifiers of a family share all but their last octet (2.5.4.x, 2.5.29.x), so
  // that octet rules out nearly every other row before the whole comparison.
  for (const OidEntry* e = kObjectIds; e->oidValue != 0; ++e) {
    if (e->length == n && n > 0 && e->octets[n - 1] == obj->oid.data[n - 1] &&
        std::memcmp(e->octets, obj->oid.data, n) == 0) {
      obj->oidValue = e->oidValue;
      return 0;
    }
  }
  return err.fail_with(2, 1, "ASN1 oidValue not found");
}

u32 Algorithm_Uid2Oid(u32 number, u32* oidValue) {
  for (const AlgorithmCode* a = kAlgorithmCodes; a->oidValue != 0; ++a) {
    if (a->number == number) {
      *oidValue = a->oidValue;
      return 0;
    }
  }
  return 1;
}

u32 Algorithm_Oid2Uid(u8 oidValue, u32* number) {
  for (const AlgorithmCode* a = kAlgorithmCodes; a->oidValue != 0; ++a) {
    if ((a->oidValue & 0xFFu) == oidValue) {
      *number = a->number;
      return 0;
    }
  }
  return 1;
}

}  // namespace hylorn
