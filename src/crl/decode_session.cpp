// The decoding session: Init reads a whole CRL into a record it hands out as an opaque
// handle, Update returns one revoked entry per call, Final returns the CRL's extensions
// and releases the handle. Handles share nothing, so any number may be open at once.
#include <cstdlib>
#include <cstring>

#include "crl/records.h"
#include "crl/signed_crl.h"
#include "hylorn.h"
#include "x509/caller_args.h"

namespace hylorn {
namespace {

struct DecodeSession {
  USER_crlTbsCertList_INFO crl;
  const USER_revokedCert_INFO* cursor;  // the next entry to return, or none
};

void release(DecodeSession* s) {
  free_USER_revokedCert_INFO(s->crl.revokedCertificates);
  std::free(s);
}

u32 decode_init(void** handle, const u8* der, u32 derLen, u32* version, u32* sigAlg, u8* params,
                u32* paramsLen, const NameOut& issuer, char* thisUpdate, char* nextUpdate) {
  auto* s = static_cast<DecodeSession*>(std::malloc(sizeof(DecodeSession)));
  if (s == nullptr) return 1;
  std::memset(s, 0, sizeof(*s));
  if (Decode_CRL_Signed(derLen, der, &s->crl) != 0) {
    release(s);
    return 1;
  }
  const USER_crlTbsCertList_INFO& crl = s->crl;
  *version = crl.version;
  *sigAlg = crl.signature.algorithm;
  if (crl.signature.parametersLength > 0) {
    std::memcpy(params, crl.signature.parameters, crl.signature.parametersLength);
  }
  *paramsLen = crl.signature.parametersLength;
  unpack_name(crl.issuer, issuer);
  std::strcpy(thisUpdate, crl.thisUpdate);
  std::strcpy(nextUpdate, crl.nextUpdatePresent ? crl.nextUpdate : "");
  s->cursor = crl.revokedCertificatesPresent ? crl.revokedCertificates : nullptr;
  *handle = s;
  return 0;
}

u32 decode_update(void* handle, u8* serial, u32* serialLen, char* revocationDate, u32* extFlags,
                  u32* critFlags, u32* reasonCode, char* invalidityDate) {
  auto* s = static_cast<DecodeSession*>(handle);
  const USER_revokedCert_INFO* e = s->cursor;
  if (e == nullptr) return 1;
  if (e->serialNumberLength > 0) std::memcpy(serial, e->serialNumber, e->serialNumberLength);
  *serialLen = e->serialNumberLength;
  std::strcpy(revocationDate, e->revocationDate);
  *extFlags = 0;
  *critFlags = 0;
  if (e->entryExtensionsPresent && e->reasonPresent) {
    *reasonCode = e->reasonCode;
    *extFlags |= kCrlFlagReason;
    if (e->reasonCritical) *critFlags |= kCrlFlagReason;
  }
  if (e->entryExtensionsPresent && e->invalidityDatePresent) {
    std::strcpy(invalidityDate, e->invalidityDate);
    *extFlags |= kCrlFlagInvalidityDate;
    // Reported critical exactly when the entry's reason is, not by its own flag: callers
    // rely on this pairing, so it is kept.
    if (e->reasonCritical) *critFlags |= kCrlFlagInvalidityDate;
  }
  s->cursor = e->next;
  return 0;
}

u32 decode_final(void* handle, u32* extFlags, u32* critFlags, const NameOut& akiIssuer,
                 u8* akiSerial, u32* akiSerialLen, u8* crlNumber, u32* crlNumberLen) {
  auto* s = static_cast<DecodeSession*>(handle);
  const USER_crlTbsCertList_INFO& crl = s->crl;
  const USER_CRL_EXTN_INFO& ext = crl.crlExtensions;
  *extFlags = 0;
  *critFlags = 0;
  if (crl.crlExtensionsPresent && ext.authorityKeyIdentifierPresent) {
    const USER_XEXT_AuthorityKeyIdentifier& aki = ext.authorityKeyIdentifier;
    *extFlags |= kCrlFlagAuthorityKeyId;
    if (aki.critical) *critFlags |= kCrlFlagAuthorityKeyId;
    unpack_name(aki.authorityCertIssuer[0], akiIssuer);
    if (aki.authorityCertSerialNumberLength > 0) {
      std::memcpy(akiSerial, aki.authorityCertSerialNumber, aki.authorityCertSerialNumberLength);
    }
    *akiSerialLen = aki.authorityCertSerialNumberLength;
  }
  if (crl.crlExtensionsPresent && ext.crlNumberPresent) {
    *extFlags |= kCrlFlagCrlNumber;
    if (ext.crlNumberCritical) *critFlags |= kCrlFlagCrlNumber;
    if (ext.crlNumberLength > 0) std::memcpy(crlNumber, ext.crlNumber, ext.crlNumberLength);
    *crlNumberLen = ext.crlNumberLength;
  }
  release(s);
  return 0;
}

}  // namespace
}  // namespace hylorn

extern "C" HYLORN_API unsigned int Crypt_Decode_Crl_Init(
    void** handle, const unsigned char* der, unsigned int derLen, unsigned int* version,
    unsigned int* sigAlg, unsigned char* params, unsigned int* paramsLen, HYLORN_NAME_OUT(issuer),
    char* thisUpdate, char* nextUpdate) {
  const hylorn::NameOut slots{HYLORN_NAME_SLOTS(issuer)};
  return hylorn::decode_init(handle, der, derLen, version, sigAlg, params, paramsLen, slots,
                             thisUpdate, nextUpdate);
}

extern "C" HYLORN_API unsigned int Crypt_Decode_Crl_Update(
    void* handle, unsigned char* serial, unsigned int* serialLen, char* revocationDate,
    unsigned int* extFlags, unsigned int* critFlags, unsigned int* reasonCode,
    char* invalidityDate) {
  return hylorn::decode_update(handle, serial, serialLen, revocationDate, extFlags, critFlags,
                               reasonCode, invalidityDate);
}

extern "C" HYLORN_API unsigned int Crypt_Decode_Crl_Final(
    void* handle, unsigned int* extFlags, unsigned int* critFlags, HYLORN_NAME_OUT(akiIssuer),
    unsigned char* akiSerial, unsigned int* akiSerialLen, unsigned char* crlNumber,
    unsigned int* crlNumberLen) {
  const hylorn::NameOut slots{HYLORN_NAME_SLOTS(akiIssuer)};
  return hylorn::decode_final(handle, extFlags, critFlags, slots, akiSerial, akiSerialLen,
                              crlNumber, crlNumberLen);
}
