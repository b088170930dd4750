// The encoding session: one CRL under construction per thread, built by Init, one
// Update per revoked certificate, and Final, which signs and writes it.
#include <cstring>

#include "crl/records.h"
#include "crl/signed_crl.h"
#include "frame/guard.h"
#include "hylorn.h"
#include "x509/caller_args.h"

namespace hylorn {
namespace {

// The record and the last entry of its list, so that appending costs the same however
// long the list has grown.
struct EncodeSession {
  USER_crlTbsCertList_INFO crl;
  USER_revokedCert_INFO* tail;
  // A thread that ends in the middle of a CRL leaves no entries behind.
  ~EncodeSession() { free_USER_revokedCert_INFO(crl.revokedCertificates); }
};

// Per thread, so that threads may each build their own CRL at the same time; within a
// thread it stays one CRL at a time.
thread_local EncodeSession session;

void drop_revoked_list() {
  free_USER_revokedCert_INFO(session.crl.revokedCertificates);
  session.crl.revokedCertificates = nullptr;
  session.tail = nullptr;
}

// Entries of an unfinished session are released rather than forgotten.
void start_empty() {
  drop_revoked_list();
  std::memset(&session.crl, 0, sizeof(session.crl));
}

u32 encode_init(u8 version, u16 sigAlg, const u8* params, u32 paramsLen, const NameIn& issuer,
                const char* thisUpdate, const char* nextUpdate) {
  start_empty();
  USER_crlTbsCertList_INFO& crl = session.crl;
  if (!put_octets(params, paramsLen, crl.signature.parameters, kAlgorithmParametersSize,
                  &crl.signature.parametersLength) ||
      !pack_name(issuer, &crl.issuer) || !put_text(thisUpdate, crl.thisUpdate) ||
      !put_text(nextUpdate, crl.nextUpdate)) {
    start_empty();
    return 1;
  }
  crl.version = version;
  crl.signature.algorithm = sigAlg;
  crl.versionPresent = 1;
  crl.nextUpdatePresent = crl.nextUpdate[0] != '\0' ? 1 : 0;
  return 0;
}

u32 encode_update(const u8* serial, u32 serialLen, const char* revocationDate, u32 extFlags,
                  u32 critFlags, u32 reasonCode, const char* invalidityDate) {
  USER_revokedCert_INFO* entry = nullptr;
  if (new_USER_revokedCert_INFO(&entry) != 0) return 1;
  auto drop = on_exit([&] { free_USER_revokedCert_INFO(entry); });
  if (!put_octets(serial, serialLen, entry->serialNumber, kSerialSize,
                  &entry->serialNumberLength) ||
      !put_text(revocationDate, entry->revocationDate)) {
    return 1;
  }
  if (extFlags & kCrlFlagReason) {
    entry->reasonPresent = entry->entryExtensionsPresent = 1;
    entry->reasonCode = reasonCode;
    entry->reasonCritical = (critFlags & kCrlFlagReason) != 0 ? 1 : 0;
  }
  if (extFlags & kCrlFlagInvalidityDate) {
    if (!put_text(invalidityDate, entry->invalidityDate)) return 1;
    entry->invalidityDatePresent = entry->entryExtensionsPresent = 1;
    entry->invalidityCritical = (critFlags & kCrlFlagInvalidityDate) != 0 ? 1 : 0;
  }
  drop.release();
  (session.tail != nullptr ? session.tail->next : session.crl.revokedCertificates) = entry;
  session.tail = entry;
  session.crl.revokedCertificatesPresent = 1;
  return 0;
}

// The CRL's extensions from Final's arguments; only AuthorityKeyIdentifier and CRLNumber
// are written, whatever else the flag word holds.
u32 set_crl_extensions(u32 extFlags, u32 critFlags, const NameIn& akiIssuer, const u8* akiSerial,
                       i32 akiSerialLen, const u8* crlNumber, u32 crlNumberLen) {
  USER_CRL_EXTN_INFO& ext = session.crl.crlExtensions;
  std::memset(&ext, 0, sizeof(ext));
  session.crl.crlExtensionsPresent =
      (extFlags & (kCrlFlagAuthorityKeyId | kCrlFlagCrlNumber)) != 0 ? 1 : 0;
  if (extFlags & kCrlFlagAuthorityKeyId) {
    if (akiSerialLen < 0) return 1;
    USER_XEXT_AuthorityKeyIdentifier& aki = ext.authorityKeyIdentifier;
    ext.authorityKeyIdentifierPresent = 1;
    aki.authorityCertIssuerPresent = 1;
    aki.nameCount = 1;
    if (!pack_name(akiIssuer, &aki.authorityCertIssuer[0])) return 1;
    if (!put_octets(akiSerial, akiSerialLen, aki.authorityCertSerialNumber, kSerialSize,
                    &aki.authorityCertSerialNumberLength)) {
      return 1;
    }
    aki.authorityCertSerialNumberPresent = aki.authorityCertSerialNumberLength > 0 ? 1 : 0;
    aki.critical = (critFlags & kCrlFlagAuthorityKeyId) != 0 ? 1 : 0;
  }
  if (extFlags & kCrlFlagCrlNumber) {
    if (!put_octets(crlNumber, crlNumberLen, ext.crlNumber, kCrlNumberSize, &ext.crlNumberLength)) {
      return 1;
    }
    ext.crlNumberPresent = 1;
    ext.crlNumberCritical = (critFlags & kCrlFlagCrlNumber) != 0 ? 1 : 0;
  }
  return 0;
}

u32 encode_final(u32 extFlags, u32 critFlags, const NameIn& akiIssuer, const u8* akiSerial,
                 i32 akiSerialLen, const u8* crlNumber, u32 crlNumberLen, const char* keyName,
                 const char* secondText, u8* out, u32* outLen) {
  if (set_crl_extensions(extFlags, critFlags, akiIssuer, akiSerial, akiSerialLen, crlNumber,
                         crlNumberLen) != 0) {
    return 1;
  }
  SIGNING_KEY key{};
  if (!put_text(keyName, key.keyName) || !put_text(secondText, key.keySecondText)) {
    return 1;
  }
  // A failure keeps the list, so the caller may try again (with another key, say).
  if (Encode_CRL_Signed(&session.crl, &key, out, outLen) != 0) return 1;
  drop_revoked_list();
  return 0;
}

}  // namespace
}  // namespace hylorn

extern "C" HYLORN_API unsigned int Crypt_Encode_Crl_Init(
    unsigned char version, unsigned short sigAlg, const unsigned char* params,
    unsigned int paramsLen, HYLORN_NAME_IN(issuer), const char* thisUpdate,
    const char* nextUpdate) {
  const hylorn::NameIn slots{HYLORN_NAME_SLOTS(issuer)};
  return hylorn::encode_init(version, sigAlg, params, paramsLen, slots, thisUpdate, nextUpdate);
}

extern "C" HYLORN_API unsigned int Crypt_Encode_Crl_Update(
    const unsigned char* serial, unsigned int serialLen, const char* revocationDate,
    unsigned int extFlags, unsigned int critFlags, unsigned int reasonCode,
    const char* invalidityDate) {
  return hylorn::encode_update(serial, serialLen, revocationDate, extFlags, critFlags, reasonCode,
                               invalidityDate);
}

extern "C" HYLORN_API unsigned int Crypt_Encode_Crl_Final(
    unsigned int extFlags, unsigned int critFlags, HYLORN_NAME_IN(akiIssuer),
    const unsigned char* akiSerial, int akiSerialLen, const unsigned char* crlNumber,
    unsigned int crlNumberLen, const char* keyName, const char* secondText, unsigned char* out,
    unsigned int* outLen) {
  const hylorn::NameIn slots{HYLORN_NAME_SLOTS(akiIssuer)};
  return hylorn::encode_final(extFlags, critFlags, slots, akiSerial, akiSerialLen, crlNumber,
                              crlNumberLen, keyName, secondText, out, outLen);
}
