#include "crl/signed_crl.h"

#include <cstdlib>
#include <cstring>

#include "crl/tbs_cert_list.h"
#include "frame/error.h"
#include "frame/guard.h"
#include "hylorn.h"
#include "x509/signed_packet.h"

namespace hylorn {

u32 Encode_CRL_Signed(const USER_crlTbsCertList_INFO* user, const SIGNING_KEY* key, u8* out,
                      u32* outLen) {
  ErrorScope err(936);
  COMMON_SIGNED_PACKET packet;
  ini_COMMON_SIGNED_PACKET(&packet);
  auto release = on_exit([&] { free_COMMON_SIGNED_PACKET(&packet); });
  if (c2d_USER_crlTbsCertList(user, &packet.tbs) != 0) {
    return err.fail(1, "c2d_USER_crlTbsCertList");
  }
  if (u2l_signature(&user->signature, &packet.signatureAlgorithm) != 0) {
    return err.fail(2, "u2l_signature");
  }
  if (sign_COMMON_SIGNED_PACKET(err, 3, 4, user->signature.algorithm, key->keyName,
                                key->keySecondText, &packet) != 0) {
    return 1;
  }
  DATA_BUFFER der{};
  if (Der_Encode_COMMON_SIGNED_PACKET(&packet, &der) != 0) {
    return err.fail(5, "Der_Encode_COMMON_SIGNED_PACKET");
  }
  std::memcpy(out, der.data, der.length);
  *outLen = der.length;
  release.release();
  if (free_COMMON_SIGNED_PACKET(&packet) != 0) {
    free_DATA_BUFFER(&der);
    return err.fail(6, "free_COMMON_SIGNED_PACKET");
  }
  if (free_DATA_BUFFER(&der) != 0) return err.fail(7, "free_DATA_BUFFER");
  return 0;
}

u32 Decode_CRL_Signed(u32 total, const u8* der, USER_crlTbsCertList_INFO* user) {
  ErrorScope err(937);
  COMMON_SIGNED_PACKET packet;
  ini_COMMON_SIGNED_PACKET(&packet);
  auto release = on_exit([&] { free_COMMON_SIGNED_PACKET(&packet); });
  if (Der_Decode_COMMON_SIGNED_PACKET(total, der, &packet) != 0) {
    return err.fail(1, "Der_Decode_COMMON_SIGNED_PACKET");
  }
  // The message names the certificate's conversion: callers match it as it is.
  if (d2c_USER_crlTbsCertList(packet.tbs.length, packet.tbs.data, user) != 0) {
    return err.fail(2, "d2c_USER_X509_TBS_CERT");
  }
  auto drop = on_exit([&] {
    free_USER_revokedCert_INFO(user->revokedCertificates);
    user->revokedCertificates = nullptr;
  });
  // The outer algorithm must be one the library knows, though only the inner one is
  // returned.
  USER_X509_ALG_ID outer{};
  if (l2u_signature(&packet.signatureAlgorithm, &outer) != 0) return err.fail(3, "l2u_signature");
  release.release();
  if (free_COMMON_SIGNED_PACKET(&packet) != 0) return err.fail(4, "free_COMMON_SIGNED_PACKET");
  drop.release();
  return 0;
}

}  // namespace hylorn
