// Questions put to a finished certificate: its public key, one item as text, and whether
// an issuer's key made its signature.
#include <cstdio>
#include <cstring>
#include <string>

#include "frame/error.h"
#include "frame/guard.h"
#include "hylorn.h"
#include "x509/cert.h"
#include "x509/records.h"
#include "x509/signed_packet.h"

using namespace hylorn;

namespace {

// A certificate split into its caller record, outer algorithm and signature.
struct DecodedCert {
  USER_X509_TBS_CERT tbs;
  USER_X509_ALG_ID algorithm;
  u8 signature[kSignatureSize];
  u32 signatureLength;
};

u32 decode_cert(const u8* der, u32 derLen, DecodedCert* cert) {
  ini_USER_X509_TBS_CERT(&cert->tbs);
  cert->algorithm = {};
  cert->signatureLength = 0;
  return Decode_X509_Signed_Cert(der, derLen, &cert->tbs, &cert->algorithm, cert->signature,
                                 &cert->signatureLength);
}

// ---- items of Crypt_Get_Char_Info_FromCert -------------------------------------------

constexpr int kItemFailed = -1;

// Names of the slots in the one-line form of item 21, in slot order.
constexpr const char* kSlotKeys[kNameSlots] = {"C",
                                               "O",
                                               "OU",
                                               "ST",
                                               "CN",
                                               "L",
                                               "title",
                                               "SN",
                                               "GN",
                                               "initials",
                                               "emailAddress",
                                               "postalAddress",
                                               "postalCode",
                                               "postOfficeBox",
                                               "telephoneNumber",
                                               "telexNumber"};

const char* algorithm_name(u16 number) {
  switch (number) {
    case 1:
      return "md2WithRSAEncryption";
    case 2:
      return "md5WithRSAEncryption";
    case 3:
      return "sha1WithRSAEncryption";
    default:
      return "unknown";
  }
}

// The name items: 4 to 10 read the issuer, 13 to 19 the subject, each C, O, OU, ST, CN,
// L, emailAddress.
constexpr u32 kNameItemSlots[] = {0, 1, 2, 3, 4, 5, 10};
constexpr u32 kIssuerFirstItem = 4;
constexpr u32 kSubjectFirstItem = 13;
constexpr u32 kNameItems = sizeof kNameItemSlots / sizeof kNameItemSlots[0];

const char* name_item(const USER_X509_TBS_CERT& tbs, u32 item) {
  if (item >= kIssuerFirstItem && item < kIssuerFirstItem + kNameItems) {
    return tbs.issuer.slot[kNameItemSlots[item - kIssuerFirstItem]];
  }
  if (item >= kSubjectFirstItem && item < kSubjectFirstItem + kNameItems) {
    return tbs.subject.slot[kNameItemSlots[item - kSubjectFirstItem]];
  }
  return nullptr;
}

// KEY=value for each non-empty slot, joined by ", ".
std::string one_line_name(const USER_X500_NAME& name) {
  std::string line;
  for (u32 i = 0; i < kNameSlots; ++i) {
    if (name.slot[i][0] == '\0') continue;
    if (!line.empty()) line += ", ";
    line += kSlotKeys[i];
    line += '=';
    line += name.slot[i];
  }
  return line;
}

// The caller's buffer holds HYLORN_CERT_ITEM_SIZE bytes; a text that does not fit (only
// the one-line name can be that long) fails rather than run past it.
int put_item_text(const char* text, u8* out, u32* outLen) {
  const int n = std::snprintf(reinterpret_cast<char*>(out), HYLORN_CERT_ITEM_SIZE, "%s", text);
  if (n < 0 || n >= HYLORN_CERT_ITEM_SIZE) return kItemFailed;
  *outLen = static_cast<u32>(n);
  return 0;
}

int put_item(const DecodedCert& cert, u32 item, u8* out, u32* outLen) {
  const USER_X509_TBS_CERT& tbs = cert.tbs;
  if (const char* slot = name_item(tbs, item)) return put_item_text(slot, out, outLen);
  switch (item) {
    case 1: {
      const char digit[2] = {static_cast<char>('0' + tbs.version), '\0'};
      return put_item_text(digit, out, outLen);
    }
    case 2: {
      if (Crypt_Int2Char(tbs.serialNumber, tbs.serialNumberLength, reinterpret_cast<char*>(out)) !=
          0) {
        return kItemFailed;
      }
      *outLen = static_cast<u32>(std::strlen(reinterpret_cast<char*>(out)));
      return 0;
    }
    case 3:
      return put_item_text(algorithm_name(cert.algorithm.algorithm), out, outLen);
    case 11:
      return put_item_text(tbs.validity.notBefore, out, outLen);
    case 12:
      return put_item_text(tbs.validity.notAfter, out, outLen);
    case 20: {
      const auto& key = tbs.subjectPublicKeyInfo;
      std::memcpy(out, key.subjectPublicKey, key.subjectPublicKeyLength);
      *outLen = key.subjectPublicKeyLength;
      return 0;
    }
    case 21:
      return put_item_text(one_line_name(tbs.subject).c_str(), out, outLen);
    default:
      return kItemFailed;
  }
}

}  // namespace

extern "C" HYLORN_API u32 Crypt_Get_PubKey_FromCert(const u8* cert, u32 certLen, u8* pubDer,
                                                    u32* pubDerLen) {
  DecodedCert decoded;
  if (decode_cert(cert, certLen, &decoded) != 0) return 1;
  const auto& key = decoded.tbs.subjectPublicKeyInfo;
  std::memcpy(pubDer, key.subjectPublicKey, key.subjectPublicKeyLength);
  *pubDerLen = key.subjectPublicKeyLength;
  return 0;
}

// A certificate that yields no key answers 3, the answer of an unknown hash as well.
extern "C" HYLORN_API u32 Crypt_Ver_Signature_ByCert(int alg, const u8* cert, u32 certLen,
                                                     const u8* data, u32 dataLen, const u8* sig,
                                                     u32 sigLen) {
  u8 key[kPublicKeySize];
  u32 keyLen = 0;
  if (Crypt_Get_PubKey_FromCert(cert, certLen, key, &keyLen) != 0) return 3;
  return Crypt_Ver_Signature(alg, key, keyLen, data, dataLen, sig, sigLen);
}

// The certificate is decoded before the item number is looked at.
extern "C" HYLORN_API int Crypt_Get_Char_Info_FromCert(const u8* cert, u32 certLen, u32 item,
                                                       u8* out, u32* outLen) {
  DecodedCert decoded;
  if (decode_cert(cert, certLen, &decoded) != 0) return 1;
  return put_item(decoded, item, out, outLen);
}

// A signature check and nothing else: no dates, no name chaining, no constraints. The
// bytes checked are the TBS element exactly as it stands in the certificate.
extern "C" HYLORN_API u32 Crypt_Ver_Cert_ByRootCert(const u8* cert, u32 certLen, const u8* rootCert,
                                                    u32 rootCertLen) {
  u8 key[kPublicKeySize];
  u32 keyLen = 0;
  if (Crypt_Get_PubKey_FromCert(rootCert, rootCertLen, key, &keyLen) != 0) return 1;
  COMMON_SIGNED_PACKET packet;
  ini_COMMON_SIGNED_PACKET(&packet);
  auto free_packet = on_exit([&] { free_COMMON_SIGNED_PACKET(&packet); });
  if (Der_Decode_COMMON_SIGNED_PACKET(certLen, cert, &packet) != 0) return 1;
  DecodedCert decoded;
  if (decode_cert(cert, certLen, &decoded) != 0) return 1;
  return Crypt_Ver_Signature(decoded.algorithm.algorithm, key, keyLen, packet.tbs.data,
                             packet.tbs.length, decoded.signature, decoded.signatureLength) == 0
             ? 0
             : 1;
}
