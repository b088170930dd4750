// The two exported certificate functions: flat argument lists to and from the caller
// record. They only move arguments; the record does the rest through the internal
// encoder and decoder.
#include <array>
#include <cstring>

#include "frame/error.h"
#include "hylorn.h"
#include "x509/caller_args.h"
#include "x509/cert.h"
#include "x509/records.h"

using namespace hylorn;

namespace {

constexpr u32 kPolicyArguments = 4;  // the policies the argument list carries

// ---- into the caller record: every copy is bounded by its field --------------------

bool put_algorithm(u16 number, const u8* params, int paramsLen, USER_X509_ALG_ID* alg) {
  alg->algorithm = number;
  return put_octets(params, paramsLen, alg->parameters, kAlgorithmParametersSize,
                    &alg->parametersLength);
}

struct PolicyIn {
  const u8* oid;
  int oidLength;
  const char* qualifier;
};

// The extension arguments 46 to 86 of Crypt_Encode_Cert.
struct ExtensionsIn {
  u32 selected;
  u32 critical;
  NameIn akiIssuer;
  const u8* akiSerial;
  int akiSerialLen;
  std::array<PolicyIn, kPolicyArguments> policies;
  const char* pkupNotBefore;
  const char* pkupNotAfter;
  u8 cA;
  int pathLen;
  u32 keyUsage;
  u32 nsCertType;
  u32 setCertType;
  const u8* hashedRootKey;
  u32 hashedRootKeyLen;
};

// The issuer's name and serial number identify the authority; no key identifier.
bool fill_aki(const ExtensionsIn& in, CERT_EXTN_INFO* info, u32 critical) {
  auto& aki = info->authorityKeyIdentifier;
  if (!pack_name(in.akiIssuer, &aki.authorityCertIssuer[0])) return false;
  aki.authorityCertIssuerPresent = name_is_empty(aki.authorityCertIssuer[0]) ? 0 : 1;
  aki.nameCount = aki.authorityCertIssuerPresent;
  if (!put_octets(in.akiSerial, in.akiSerialLen, aki.authorityCertSerialNumber, kSerialSize,
                  &aki.authorityCertSerialNumberLength)) {
    return false;
  }
  aki.authorityCertSerialNumberPresent = aki.authorityCertSerialNumberLength != 0 ? 1 : 0;
  aki.critical = critical;
  return true;
}

bool fill_key_usage(const ExtensionsIn& in, CERT_EXTN_INFO* info, u32 critical) {
  info->keyUsage = {in.keyUsage, critical};
  return true;
}

// An empty text leaves that bound out.
bool fill_pkup(const ExtensionsIn& in, CERT_EXTN_INFO* info, u32 critical) {
  auto& period = info->privateKeyUsagePeriod;
  if (!put_text(in.pkupNotBefore, period.notBefore, kTimeTextSize) ||
      !put_text(in.pkupNotAfter, period.notAfter, kTimeTextSize)) {
    return false;
  }
  period.notBeforePresent = period.notBefore[0] != '\0' ? 1 : 0;
  period.notAfterPresent = period.notAfter[0] != '\0' ? 1 : 0;
  period.critical = critical;
  return true;
}

// Policies without identifier octets are skipped; the others close up in order.
bool fill_policies(const ExtensionsIn& in, CERT_EXTN_INFO* info, u32 critical) {
  auto& policies = info->certificatePolicies;
  u32 count = 0;
  for (const PolicyIn& p : in.policies) {
    if (p.oidLength <= 0) continue;
    if (!put_octets(p.oid, p.oidLength, policies.policyIdentifier[count], kPolicyOidSize,
                    &policies.policyIdentifierLength[count]) ||
        !put_text(p.qualifier, policies.qualifier[count], kPolicyQualifierSize)) {
      return false;
    }
    ++count;
  }
  policies.count = count;
  policies.critical = critical;
  return true;
}

// A negative path length means none.
bool fill_basic_constraints(const ExtensionsIn& in, CERT_EXTN_INFO* info, u32 critical) {
  info->basicConstraints = {in.cA, in.pathLen, static_cast<u8>(in.pathLen >= 0 ? 1 : 0),
                            static_cast<u8>(critical)};
  return true;
}

bool fill_ns_cert_type(const ExtensionsIn& in, CERT_EXTN_INFO* info, u32 critical) {
  info->netscapeCertType = {in.nsCertType, critical};
  return true;
}

bool fill_hashed_root_key(const ExtensionsIn& in, CERT_EXTN_INFO* info, u32 critical) {
  auto& key = info->setHashedRootKey;
  key.critical = critical;
  return put_octets(in.hashedRootKey, in.hashedRootKeyLen, key.octets, kHashedRootKeySize,
                    &key.length);
}

bool fill_set_cert_type(const ExtensionsIn& in, CERT_EXTN_INFO* info, u32 critical) {
  info->setCertType = {in.setCertType, critical};
  return true;
}

// ---- out of the caller record ----------------------------------------------------------

struct PolicyOut {
  u8* oid;
  u32* oidLength;
  char* qualifier;
};

// The extension outputs of Crypt_Decode_Cert, after the two flag words.
struct ExtensionsOut {
  NameOut akiIssuer;
  u8* akiSerial;
  u32* akiSerialLen;
  std::array<PolicyOut, kPolicyArguments> policies;
  char* pkupNotBefore;
  char* pkupNotAfter;
  u8* cA;
  int* pathLen;
  u32* keyUsage;
  u32* nsCertType;
  u32* setCertType;
  u8* hashedRootKey;
  u32* hashedRootKeyLen;
  u32* policyCount;
  u8* subjectKeyId;
  u32* subjectKeyIdLen;
};

void clear_extensions(const ExtensionsOut& out) {
  clear_name(out.akiIssuer);
  *out.akiSerialLen = 0;
  for (const PolicyOut& p : out.policies) {
    *p.oidLength = 0;
    p.qualifier[0] = '\0';
  }
  out.pkupNotBefore[0] = out.pkupNotAfter[0] = '\0';
  *out.cA = 0;
  *out.pathLen = 0;
  *out.keyUsage = *out.nsCertType = *out.setCertType = 0;
  *out.hashedRootKeyLen = *out.policyCount = *out.subjectKeyIdLen = 0;
}

// Each unpacks its record and answers its critical flag.
u32 unpack_aki(const CERT_EXTN_INFO& info, const ExtensionsOut& out) {
  const auto& aki = info.authorityKeyIdentifier;
  if (aki.authorityCertIssuerPresent && aki.nameCount > 0) {
    unpack_name(aki.authorityCertIssuer[0], out.akiIssuer);
  }
  if (aki.authorityCertSerialNumberPresent) {
    take_octets(out.akiSerial, out.akiSerialLen, aki.authorityCertSerialNumber,
                aki.authorityCertSerialNumberLength, kSerialSize);
  }
  return aki.critical;
}

u32 unpack_key_usage(const CERT_EXTN_INFO& info, const ExtensionsOut& out) {
  *out.keyUsage = info.keyUsage.bits;
  return info.keyUsage.critical;
}

u32 unpack_pkup(const CERT_EXTN_INFO& info, const ExtensionsOut& out) {
  const auto& period = info.privateKeyUsagePeriod;
  if (period.notBeforePresent) take_text(out.pkupNotBefore, period.notBefore, kTimeTextSize);
  if (period.notAfterPresent) take_text(out.pkupNotAfter, period.notAfter, kTimeTextSize);
  return period.critical;
}

// The first four policies reach the outputs; the count says how many there were.
u32 unpack_policies(const CERT_EXTN_INFO& info, const ExtensionsOut& out) {
  const auto& policies = info.certificatePolicies;
  const u32 count = policies.count < kPolicySlots ? policies.count : kPolicySlots;
  for (u32 i = 0; i < count && i < kPolicyArguments; ++i) {
    const PolicyOut& p = out.policies[i];
    take_octets(p.oid, p.oidLength, policies.policyIdentifier[i],
                policies.policyIdentifierLength[i], kPolicyOidSize);
    take_text(p.qualifier, policies.qualifier[i], kPolicyQualifierSize);
  }
  *out.policyCount = count;
  return policies.critical;
}

// pathLen -1 stands for a BasicConstraints without pathLenConstraint.
u32 unpack_basic_constraints(const CERT_EXTN_INFO& info, const ExtensionsOut& out) {
  const auto& bc = info.basicConstraints;
  *out.cA = bc.cA ? 1 : 0;
  *out.pathLen = bc.pathLenPresent ? bc.pathLenConstraint : -1;
  return bc.critical;
}

u32 unpack_ns_cert_type(const CERT_EXTN_INFO& info, const ExtensionsOut& out) {
  *out.nsCertType = info.netscapeCertType.bits;
  return info.netscapeCertType.critical;
}

u32 unpack_hashed_root_key(const CERT_EXTN_INFO& info, const ExtensionsOut& out) {
  const auto& key = info.setHashedRootKey;
  take_octets(out.hashedRootKey, out.hashedRootKeyLen, key.octets, key.length, kHashedRootKeySize);
  return key.critical;
}

u32 unpack_set_cert_type(const CERT_EXTN_INFO& info, const ExtensionsOut& out) {
  *out.setCertType = info.setCertType.bits;
  return info.setCertType.critical;
}

// One row per selection bit of the argument lists.
struct ExtensionRow {
  u32 bit;
  u32 CERT_EXTN_INFO::*present;
  bool (*fill)(const ExtensionsIn&, CERT_EXTN_INFO*, u32 critical);
  u32 (*unpack)(const CERT_EXTN_INFO&, const ExtensionsOut&);
};

constexpr ExtensionRow kExtensionRows[] = {
    {0x001, &CERT_EXTN_INFO::authorityKeyIdentifierPresent, fill_aki, unpack_aki},
    {0x002, &CERT_EXTN_INFO::keyUsagePresent, fill_key_usage, unpack_key_usage},
    {0x004, &CERT_EXTN_INFO::privateKeyUsagePeriodPresent, fill_pkup, unpack_pkup},
    {0x008, &CERT_EXTN_INFO::certificatePoliciesPresent, fill_policies, unpack_policies},
    {0x010, &CERT_EXTN_INFO::basicConstraintsPresent, fill_basic_constraints,
     unpack_basic_constraints},
    {0x040, &CERT_EXTN_INFO::netscapeCertTypePresent, fill_ns_cert_type, unpack_ns_cert_type},
    {0x080, &CERT_EXTN_INFO::setHashedRootKeyPresent, fill_hashed_root_key, unpack_hashed_root_key},
    {0x100, &CERT_EXTN_INFO::setCertTypePresent, fill_set_cert_type, unpack_set_cert_type},
};

bool fill_extensions(const ExtensionsIn& in, USER_X509_TBS_CERT* user) {
  for (const ExtensionRow& row : kExtensionRows) {
    if ((in.selected & row.bit) == 0) continue;
    if (!row.fill(in, &user->extensions, (in.critical & row.bit) != 0 ? 1 : 0)) return false;
    user->extensions.*row.present = 1;
    user->extensionsPresent = 1;
  }
  return true;
}

void unpack_extensions(const USER_X509_TBS_CERT& user, u32* selected, u32* critical,
                       const ExtensionsOut& out) {
  if (!user.extensionsPresent) return;
  for (const ExtensionRow& row : kExtensionRows) {
    if (!(user.extensions.*row.present)) continue;
    *selected |= row.bit;
    if (row.unpack(user.extensions, out) != 0) *critical |= row.bit;
  }
  // The subject key identifier has no selection bit; it has its own trailing output.
  if (user.extensions.subjectKeyIdentifierPresent) {
    const auto& ski = user.extensions.subjectKeyIdentifier;
    take_octets(out.subjectKeyId, out.subjectKeyIdLen, ski.keyIdentifier, ski.keyIdentifierLength,
                kKeyIdentifierSize);
  }
}

// The fields before the extensions, arguments 0 to 41 of Crypt_Encode_Cert.
struct CoreIn {
  u8 version;
  const u8* serial;
  u16 serialLen;
  u16 sigAlg;
  const u8* params;
  int paramsLen;
  NameIn issuer;
  const char* notBefore;
  const char* notAfter;
  NameIn subject;
  const u8* pubKey;
  u16 pubKeyLen;
};

// The key is always RSA: rsaEncryption with NULL parameters.
constexpr u16 kRsaEncryption = 4;
constexpr u8 kNullParameters[] = {0x05, 0x00};

bool fill_core(const CoreIn& in, USER_X509_TBS_CERT* user) {
  user->version = in.version;
  user->versionPresent = 1;
  auto& key = user->subjectPublicKeyInfo;
  return put_octets(in.serial, in.serialLen, user->serialNumber, kSerialSize,
                    &user->serialNumberLength) &&
         put_algorithm(in.sigAlg, in.params, in.paramsLen, &user->signature) &&
         pack_name(in.issuer, &user->issuer) &&
         put_text(in.notBefore, user->validity.notBefore, kTimeTextSize) &&
         put_text(in.notAfter, user->validity.notAfter, kTimeTextSize) &&
         pack_name(in.subject, &user->subject) &&
         put_octets(in.pubKey, in.pubKeyLen, key.subjectPublicKey, kPublicKeySize,
                    &key.subjectPublicKeyLength) &&
         put_algorithm(kRsaEncryption, kNullParameters, sizeof kNullParameters, &key.algorithm);
}

// The outputs before the extensions, in Crypt_Decode_Cert's order.
struct CoreOut {
  u32* version;
  u8* serial;
  u32* serialLen;
  u32* sigAlg;
  u8* params;
  u32* paramsLen;
  NameOut issuer;
  char* notBefore;
  char* notAfter;
  NameOut subject;
  u8* pubKey;
  u32* pubKeyLen;
};

void clear_core(const CoreOut& out) {
  *out.version = *out.serialLen = *out.sigAlg = *out.paramsLen = *out.pubKeyLen = 0;
  clear_name(out.issuer);
  clear_name(out.subject);
  out.notBefore[0] = out.notAfter[0] = '\0';
}

void unpack_core(const USER_X509_TBS_CERT& user, const USER_X509_ALG_ID& outer,
                 const CoreOut& out) {
  *out.version = user.version;
  take_octets(out.serial, out.serialLen, user.serialNumber, user.serialNumberLength, kSerialSize);
  // The algorithm reported is the outer one, the one the signature was made with.
  *out.sigAlg = outer.algorithm;
  take_octets(out.params, out.paramsLen, outer.parameters, outer.parametersLength,
              kAlgorithmParametersSize);
  unpack_name(user.issuer, out.issuer);
  take_text(out.notBefore, user.validity.notBefore, kTimeTextSize);
  take_text(out.notAfter, user.validity.notAfter, kTimeTextSize);
  unpack_name(user.subject, out.subject);
  const auto& key = user.subjectPublicKeyInfo;
  take_octets(out.pubKey, out.pubKeyLen, key.subjectPublicKey, key.subjectPublicKeyLength,
              kPublicKeySize);
}

}  // namespace

// Arguments that do not fit their fields (see HYLORN_*_SIZE) are refused with 1 before
// anything is encoded; like every exported function this one adds no entry of its own.
extern "C" HYLORN_API u32 Crypt_Encode_Cert(
    u8 version, const u8* serial, u16 serialLen, u16 sigAlg, const u8* params, int paramsLen,
    HYLORN_NAME_IN(issuer), const char* notBefore, const char* notAfter, HYLORN_NAME_IN(subject),
    const u8* pubKey, u16 pubKeyLen, const u8*, u32, const u8*, u32, u32 extFlags, u32 critFlags,
    HYLORN_NAME_IN(akiIssuer), const u8* akiSerial, int akiSerialLen, const u8* policyOid1,
    int policyOid1Len, const char* policyQualifier1, const u8* policyOid2, int policyOid2Len,
    const char* policyQualifier2, const u8* policyOid3, int policyOid3Len,
    const char* policyQualifier3, const u8* policyOid4, int policyOid4Len,
    const char* policyQualifier4, const char* pkupNotBefore, const char* pkupNotAfter, u8 cA,
    int pathLen, u32 keyUsage, u32 nsCertType, u32 setCertType, const u8* hashedRootKey,
    u32 hashedRootKeyLen, u32, const u8*, u32, const char* keyName, const char* secondText, u8* out,
    u32* outLen) {
  Crypt_Clear_Err();
  USER_X509_TBS_CERT user;
  ini_USER_X509_TBS_CERT(&user);
  const CoreIn core{version,
                    serial,
                    serialLen,
                    sigAlg,
                    params,
                    paramsLen,
                    {HYLORN_NAME_SLOTS(issuer)},
                    notBefore,
                    notAfter,
                    {HYLORN_NAME_SLOTS(subject)},
                    pubKey,
                    pubKeyLen};
  const ExtensionsIn extensions{extFlags,
                                critFlags,
                                {HYLORN_NAME_SLOTS(akiIssuer)},
                                akiSerial,
                                akiSerialLen,
                                {{{policyOid1, policyOid1Len, policyQualifier1},
                                  {policyOid2, policyOid2Len, policyQualifier2},
                                  {policyOid3, policyOid3Len, policyQualifier3},
                                  {policyOid4, policyOid4Len, policyQualifier4}}},
                                pkupNotBefore,
                                pkupNotAfter,
                                cA,
                                pathLen,
                                keyUsage,
                                nsCertType,
                                setCertType,
                                hashedRootKey,
                                hashedRootKeyLen};
  USER_X509_ALG_ID outer{};
  SIGNING_KEY key{};
  if (!fill_core(core, &user) || !fill_extensions(extensions, &user) ||
      !put_algorithm(sigAlg, params, paramsLen, &outer) ||
      !put_text(keyName, key.keyName, kKeyNameSize) ||
      !put_text(secondText, key.keySecondText, kKeyNameSize)) {
    return 1;
  }
  return Encode_X509_Signed_Cert(&user, &outer, &key, out, outLen) == 0 ? 0 : 1;
}

extern "C" HYLORN_API u32
Crypt_Decode_Cert(const u8* der, u32 derLen, u32* version, u8* serial, u32* serialLen, u32* sigAlg,
                  u8* params, u32* paramsLen, HYLORN_NAME_OUT(issuer), char* notBefore,
                  char* notAfter, HYLORN_NAME_OUT(subject), u8* pubKey, u32* pubKeyLen, u8*,
                  u32* issuerUIDLen, u8*, u32* subjectUIDLen, u8* signature, u32* signatureLen,
                  u32* extFlags, u32* critFlags, HYLORN_NAME_OUT(akiIssuer), u8* akiSerial,
                  u32* akiSerialLen, u8* policyOid1, u32* policyOid1Len, char* policyQualifier1,
                  u8* policyOid2, u32* policyOid2Len, char* policyQualifier2, u8* policyOid3,
                  u32* policyOid3Len, char* policyQualifier3, u8* policyOid4, u32* policyOid4Len,
                  char* policyQualifier4, char* pkupNotBefore, char* pkupNotAfter, u8* cA,
                  int* pathLen, u32* keyUsage, u32* nsCertType, u32* setCertType, u8* hashedRootKey,
                  u32* hashedRootKeyLen, u32* policyCount, u8* subjectKeyId, u32* subjectKeyIdLen) {
  Crypt_Clear_Err();
  const CoreOut core{version,
                     serial,
                     serialLen,
                     sigAlg,
                     params,
                     paramsLen,
                     {HYLORN_NAME_SLOTS(issuer)},
                     notBefore,
                     notAfter,
                     {HYLORN_NAME_SLOTS(subject)},
                     pubKey,
                     pubKeyLen};
  const ExtensionsOut extensions{{HYLORN_NAME_SLOTS(akiIssuer)},
                                 akiSerial,
                                 akiSerialLen,
                                 {{{policyOid1, policyOid1Len, policyQualifier1},
                                   {policyOid2, policyOid2Len, policyQualifier2},
                                   {policyOid3, policyOid3Len, policyQualifier3},
                                   {policyOid4, policyOid4Len, policyQualifier4}}},
                                 pkupNotBefore,
                                 pkupNotAfter,
                                 cA,
                                 pathLen,
                                 keyUsage,
                                 nsCertType,
                                 setCertType,
                                 hashedRootKey,
                                 hashedRootKeyLen,
                                 policyCount,
                                 subjectKeyId,
                                 subjectKeyIdLen};
  clear_core(core);
  clear_extensions(extensions);
  *issuerUIDLen = *subjectUIDLen = *signatureLen = *extFlags = *critFlags = 0;

  USER_X509_TBS_CERT user;
  ini_USER_X509_TBS_CERT(&user);
  USER_X509_ALG_ID outer{};
  if (Decode_X509_Signed_Cert(der, derLen, &user, &outer, signature, signatureLen) != 0) {
    return 1;
  }
  unpack_core(user, outer, core);
  unpack_extensions(user, extFlags, critFlags, extensions);
  return 0;
}
