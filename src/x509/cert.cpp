// Whole certificates: the caller record to TBS DER and back, signing, and splitting.
//
//   Certificate ::= SEQUENCE { tbsCertificate     TBSCertificate,
//                              signatureAlgorithm AlgorithmIdentifier,
//                              signatureValue     BIT STRING }
#include "x509/cert.h"

#include <cstring>

#include "frame/error.h"
#include "frame/guard.h"
#include "hylorn.h"
#include "x509/signed_packet.h"
#include "x509/tbs_cert.h"

namespace hylorn {
namespace {

// The hook where a content check of the caller record would go. Every record passes:
// the limits that matter are enforced by the conversions that follow.
bool content_acceptable(const USER_X509_TBS_CERT*) {
  return true;
}

}  // namespace

// TBSCertificate ::= SEQUENCE { version [0] ..., serialNumber, signature, issuer,
//                               validity, subject, subjectPublicKeyInfo, ... }
u32 c2d_USER_X509_TBS_CERT(const USER_X509_TBS_CERT* user, u8* der, u32* derLen) {
  ErrorScope err(315);
  if (!content_acceptable(user)) return err.fail(1, "content of USER_X509_TBS_CERT error");
  X509_TBS_CERT tbs;
  ini_X509_TBS_CERT(&tbs);
  auto free_tbs = on_exit([&] { free_X509_TBS_CERT(&tbs); });
  if (u2l_USER_X509_TBS_CERT(user, &tbs) != 0) return err.fail(2, "u2l_USER_X509_TBS_CERT");
  DATA_BUFFER encoded{};
  auto free_encoded = on_exit([&] { free_DATA_BUFFER(&encoded); });
  if (Der_Encode_X509_Tbs_Cert(&tbs, &encoded) != 0) {
    return err.fail(3, "Der_Encode_X509_Tbs_Cert");
  }
  // The working buffer is all the room there is: a larger TBS is refused, not truncated.
  if (encoded.length > kTbsMaxSize) return err.fail(3, "data too length");
  std::memcpy(der, encoded.data, encoded.length);
  *derLen = encoded.length;
  return 0;
}

u32 d2c_USER_X509_TBS_CERT(const u8* der, u32 derLen, USER_X509_TBS_CERT* user) {
  ErrorScope err(316);
  X509_TBS_CERT tbs;
  if (ini_X509_TBS_CERT(&tbs) != 0) return err.fail(1, "ini_X509_TBS_CERT");
  auto free_tbs = on_exit([&] { free_X509_TBS_CERT(&tbs); });
  if (Der_Decode_X509_Tbs_Cert(derLen, der, &tbs) != 0) {
    return err.fail(1, "Der_Decode_X509_Tbs_Cert");
  }
  if (l2u_USER_X509_TBS_CERT(&tbs, user) != 0) return err.fail(2, "l2u_USER_X509_TBS_CERT");
  free_tbs.release();
  if (free_X509_TBS_CERT(&tbs) != 0) return err.fail(2, "free_X509_TBS_CERT");
  return 0;
}

u32 Encode_X509_Signed_Cert(const USER_X509_TBS_CERT* user, const USER_X509_ALG_ID* alg,
                            const SIGNING_KEY* key, u8* out, u32* outLen) {
  ErrorScope err(317);
  u8 work[kTbsMaxSize];
  u32 workLen = 0;
  if (c2d_USER_X509_TBS_CERT(user, work, &workLen) != 0) {
    return err.fail(1, "c2d_USER_X509_TBS_CERT");
  }
  COMMON_SIGNED_PACKET packet;
  ini_COMMON_SIGNED_PACKET(&packet);
  auto free_packet = on_exit([&] { free_COMMON_SIGNED_PACKET(&packet); });
  if (copy_DATA_BUFFER(&packet.tbs, workLen, work) != 0) return err.fail(2, "malloc");
  if (u2l_signature(alg, &packet.signatureAlgorithm) != 0) return err.fail(2, "u2l_signature");
  if (sign_COMMON_SIGNED_PACKET(err, 3, 3, alg->algorithm, key->keyName, key->keySecondText,
                                &packet) != 0) {
    return 1;
  }
  DATA_BUFFER cert{};
  auto free_cert = on_exit([&] { free_DATA_BUFFER(&cert); });
  if (Der_Encode_COMMON_SIGNED_PACKET(&packet, &cert) != 0) {
    return err.fail(4, "Der_Encode_COMMON_SIGNED_PACKET");
  }
  // The caller's buffer holds HYLORN_CERT_DER_SIZE octets; parameters near their 1,024
  // octet limit, written twice, could pass it, and are refused rather than overrun it.
  if (cert.length > HYLORN_CERT_DER_SIZE) return err.fail(4, "data too length");
  std::memcpy(out, cert.data, cert.length);
  *outLen = cert.length;
  free_packet.release();
  if (free_COMMON_SIGNED_PACKET(&packet) != 0) return err.fail(5, "free_COMMON_SIGNED_PACKET");
  free_cert.release();
  if (free_DATA_BUFFER(&cert) != 0) return err.fail(6, "free_DATA_BUFFER");
  return 0;
}

u32 Decode_X509_Signed_Cert(const u8* der, u32 derLen, USER_X509_TBS_CERT* user,
                            USER_X509_ALG_ID* alg, u8* sig, u32* sigLen) {
  ErrorScope err(318);
  DATA_BUFFER copy{};
  if (copy_DATA_BUFFER(&copy, derLen, der) != 0) return err.fail(1, "malloc");
  auto free_copy = on_exit([&] { free_DATA_BUFFER(&copy); });
  COMMON_SIGNED_PACKET packet;
  ini_COMMON_SIGNED_PACKET(&packet);
  auto free_packet = on_exit([&] { free_COMMON_SIGNED_PACKET(&packet); });
  if (Der_Decode_COMMON_SIGNED_PACKET(copy.length, copy.data, &packet) != 0) {
    return err.fail(2, "Der_Decode_COMMON_SIGNED_PACKET");
  }
  free_copy.release();
  if (free_DATA_BUFFER(&copy) != 0) return err.fail(3, "Der_Decode_COMMON_SIGNED_PACKET");
  if (d2c_USER_X509_TBS_CERT(packet.tbs.data, packet.tbs.length, user) != 0) {
    return err.fail(4, "d2c_USER_X509_TBS_CERT");
  }
  if (l2u_signature(&packet.signatureAlgorithm, alg) != 0) {
    return err.fail(5, "d2c_USER_X509_TBS_CERT");
  }
  // The caller's signature buffer holds kSignatureSize octets, the signature of the
  // 1,024-bit keys the library makes and checks; a longer one (a larger key) is refused
  // with 1 rather than written past that buffer.
  if (packet.signature.length > kSignatureSize) return err.fail(6, "signature too long");
  if (packet.signature.length != 0) {
    std::memcpy(sig, packet.signature.data, packet.signature.length);
  }
  *sigLen = packet.signature.length;
  free_packet.release();
  if (free_COMMON_SIGNED_PACKET(&packet) != 0) return err.fail(6, "d2c_USER_X509_TBS_CERT");
  return 0;
}

}  // namespace hylorn
