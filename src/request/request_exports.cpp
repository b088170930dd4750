// The three request entries: flat arguments into the caller records and back out.
#include <cstring>

#include "hylorn.h"
#include "request/pkcs10.h"
#include "request/spkac.h"

using hylorn::kNameSlots;
using hylorn::kNameSlotSize;
using hylorn::u32;
using hylorn::u8;

namespace {

// Requests always carry an RSA key and are always signed with MD5 with RSA; both
// identifiers take a NULL parameter.
constexpr u8 kNullParameters[] = {0x05, 0x00};
constexpr hylorn::u16 kMd5WithRsa = 2;
constexpr hylorn::u16 kRsaEncryption = 4;

void set_algorithm(hylorn::u16 number, hylorn::USER_X509_ALG_ID* alg) {
  alg->algorithm = number;
  std::memcpy(alg->parameters, kNullParameters, sizeof(kNullParameters));
  alg->parametersLength = sizeof(kNullParameters);
}

// Copies text (null reads as "") with its NUL into a field of size bytes; false when it
// would not fit.
bool copy_text(char* field, u32 size, const char* text) {
  if (text == nullptr) text = "";
  const std::size_t n = std::strlen(text);
  if (n >= size) return false;
  std::memcpy(field, text, n + 1);
  return true;
}

bool fill_name(const char* const (&texts)[kNameSlots], hylorn::USER_X500_NAME* name) {
  for (u32 i = 0; i < kNameSlots; ++i) {
    if (!copy_text(name->slot[i], kNameSlotSize, texts[i])) return false;
  }
  return true;
}

void unpack_name(const hylorn::USER_X500_NAME& name, char* const (&texts)[kNameSlots]) {
  for (u32 i = 0; i < kNameSlots; ++i) {
    std::memcpy(texts[i], name.slot[i], std::strlen(name.slot[i]) + 1);
  }
}

void unpack_key(const hylorn::USER_X509_PUBLIC_KEY& key, u8* out, u32* outLen) {
  std::memcpy(out, key.subjectPublicKey, key.subjectPublicKeyLength);
  *outLen = key.subjectPublicKeyLength;
}

}  // namespace

extern "C" HYLORN_API u32 Crypt_Encode_Pkcs10(u8 version, HYLORN_NAME_IN(subject), const u8* pubKey,
                                              u32 pubKeyLen, const char* keyName,
                                              const char* secondText, u8* out, u32* outLen) {
  const char* const subject[kNameSlots] = {subjectC,          subjectO,
                                           subjectOU,         subjectST,
                                           subjectCN,         subjectL,
                                           subjectTitle,      subjectSN,
                                           subjectGN,         subjectInitials,
                                           subjectEmail,      subjectPostalAddress,
                                           subjectPostalCode, subjectPostOfficeBox,
                                           subjectTelephone,  subjectTelex};
  hylorn::USER_PKCS10_CERT_REQ_INFO user;
  hylorn::ini_USER_PKCS10_CERT_REQ_INFO(&user);
  user.version = version;
  if (!fill_name(subject, &user.subject)) return 1;
  if (pubKeyLen > hylorn::kPublicKeySize) return 1;
  if (pubKeyLen > 0) std::memcpy(user.subjectPublicKeyInfo.subjectPublicKey, pubKey, pubKeyLen);
  user.subjectPublicKeyInfo.subjectPublicKeyLength = static_cast<hylorn::u16>(pubKeyLen);
  set_algorithm(kRsaEncryption, &user.subjectPublicKeyInfo.algorithm);

  hylorn::USER_X509_ALG_ID alg;
  set_algorithm(kMd5WithRsa, &alg);
  hylorn::SIGNING_KEY key{};
  if (!copy_text(key.keyName, sizeof(key.keyName), keyName)) return 1;
  if (!copy_text(key.keySecondText, sizeof(key.keySecondText), secondText)) return 1;
  return hylorn::Encode_PKCS10_Signed_Req(&user, &alg, &key, out, outLen);
}

extern "C" HYLORN_API u32 Crypt_Decode_Pkcs10(const u8* der, u32 derLen, u32* version,
                                              HYLORN_NAME_OUT(subject), u8* pubKey,
                                              u32* pubKeyLen) {
  char* const subject[kNameSlots] = {subjectC,          subjectO,
                                     subjectOU,         subjectST,
                                     subjectCN,         subjectL,
                                     subjectTitle,      subjectSN,
                                     subjectGN,         subjectInitials,
                                     subjectEmail,      subjectPostalAddress,
                                     subjectPostalCode, subjectPostOfficeBox,
                                     subjectTelephone,  subjectTelex};
  hylorn::USER_PKCS10_CERT_REQ_INFO user;
  if (hylorn::Decode_PKCS10_Signed_Req(der, derLen, &user) != 0) return 1;
  *version = user.version;
  unpack_name(user.subject, subject);
  unpack_key(user.subjectPublicKeyInfo, pubKey, pubKeyLen);
  return 0;
}

extern "C" HYLORN_API u32 Crypt_Decode_NetscapeCertReq(const u8* der, u32 derLen, u8* pubKey,
                                                       u32* pubKeyLen, char* challenge) {
  hylorn::USER_NETSCAPE_CERT_REQ_INFO user;
  if (hylorn::Decode_Netscape_Signed_Req(der, derLen, &user) != 0) return 1;
  unpack_key(user.subjectPublicKeyInfo, pubKey, pubKeyLen);
  std::memcpy(challenge, user.challenge, std::strlen(user.challenge) + 1);
  return 0;
}
