// The three request entries: flat arguments into the caller records and back out.
#include <cstring>

#include "hylorn.h"
#include "request/pkcs10.h"
#include "request/spkac.h"
#include "x509/caller_args.h"

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

void unpack_key(const hylorn::USER_X509_PUBLIC_KEY& key, u8* out, u32* outLen) {
  hylorn::take_octets(out, outLen, key.subjectPublicKey, key.subjectPublicKeyLength,
                      hylorn::kPublicKeySize);
}

}  // namespace

extern "C" HYLORN_API u32 Crypt_Encode_Pkcs10(u8 version, HYLORN_NAME_IN(subject), const u8* pubKey,
                                              u32 pubKeyLen, const char* keyName,
                                              const char* secondText, u8* out, u32* outLen) {
  const hylorn::NameIn subject{HYLORN_NAME_SLOTS(subject)};
  hylorn::USER_PKCS10_CERT_REQ_INFO user;
  hylorn::ini_USER_PKCS10_CERT_REQ_INFO(&user);
  user.version = version;
  auto& spki = user.subjectPublicKeyInfo;
  if (!hylorn::pack_name(subject, &user.subject) ||
      !hylorn::put_octets(pubKey, pubKeyLen, spki.subjectPublicKey, hylorn::kPublicKeySize,
                          &spki.subjectPublicKeyLength)) {
    return 1;
  }
  set_algorithm(kRsaEncryption, &user.subjectPublicKeyInfo.algorithm);

  hylorn::USER_X509_ALG_ID alg;
  set_algorithm(kMd5WithRsa, &alg);
  hylorn::SIGNING_KEY key{};
  if (!hylorn::put_text(keyName, key.keyName) || !hylorn::put_text(secondText, key.keySecondText)) {
    return 1;
  }
  return hylorn::Encode_PKCS10_Signed_Req(&user, &alg, &key, out, outLen);
}

extern "C" HYLORN_API u32 Crypt_Decode_Pkcs10(const u8* der, u32 derLen, u32* version,
                                              HYLORN_NAME_OUT(subject), u8* pubKey,
                                              u32* pubKeyLen) {
  const hylorn::NameOut subject{HYLORN_NAME_SLOTS(subject)};
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
  hylorn::take_text(challenge, user.challenge, sizeof(user.challenge));
  return 0;
}
