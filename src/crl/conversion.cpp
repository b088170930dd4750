// The TBSCertList between the caller's record and the internal one, and to and from DER.
#include <cstring>

#include "crl/crl_extensions.h"
#include "crl/tbs_cert_list.h"
#include "frame/error.h"
#include "frame/guard.h"
#include "x509/name.h"
#include "x509/tbs_cert.h"
#include "x509/time.h"

namespace hylorn {

constexpr u8 kLastCrlVersion = 1;  // v2

u32 u2l_crl_version(u8 version, u8* out) {
  return check_version(924, kLastCrlVersion, version, out);
}

u32 l2u_crl_version(u8 version, u8* out) {
  return check_version(925, kLastCrlVersion, version, out);
}

u32 l2u_crl_time(const X509_TIME* time, char text[kTimeTextSize]) {
  ErrorScope err(927);
  if (time->type > 1 || l2u_X509_TIME(time, text) != 0) return err.fail(1, "tiem type error");
  return 0;
}

u32 u2l_REVOKED_CERT(const USER_revokedCert_INFO* user, CRL_REVOKED_CERT* entry) {
  ErrorScope err(928);
  if (user->serialNumberLength > kSerialSize ||
      u2l_serialNumber(user->serialNumber, user->serialNumberLength, &entry->userCertificate)) {
    return err.fail(1, "u2l_serialNumber");
  }
  if (u2l_X509_TIME(user->revocationDate, &entry->revocationDate) != 0) {
    return err.fail(2, "u2l_X509_TIME");
  }
  if (user->entryExtensionsPresent) {
    if (u2l_CRL_ENTRY_EXTENSIONS(user, &entry->crlEntryExtensions) != 0) {
      return err.fail(3, "u2l_CRL_ENTRY_EXTENSIONS");
    }
    entry->crlEntryExtensionsPresent = 1;
  }
  return 0;
}

u32 l2u_REVOKED_CERT(const CRL_REVOKED_CERT* entry, USER_revokedCert_INFO* user) {
  ErrorScope err(929);
  if (l2u_serialNumber(&entry->userCertificate, user->serialNumber, &user->serialNumberLength)) {
    return err.fail(1, "l2u_serialNumber");
  }
  if (l2u_crl_time(&entry->revocationDate, user->revocationDate) != 0) {
    return err.fail(2, "l2u_crl_time");
  }
  if (entry->crlEntryExtensionsPresent &&
      l2u_CRL_ENTRY_EXTENSIONS(&entry->crlEntryExtensions, user) != 0) {
    return err.fail(3, "l2u_CRL_ENTRY_EXTENSIONS");
  }
  return 0;
}

u32 u2l_CRL_TBS_CERT_LIST(const USER_crlTbsCertList_INFO* user, CRL_TBS_CERT_LIST* tbs) {
  ErrorScope err(932);
  if (ini_CRL_TBS_CERT_LIST(tbs) != 0) return err.fail(1, "ini_CRL_TBS_CERT_LIST");
  if (u2l_crl_version(user->version, &tbs->version) != 0) return err.fail(2, "u2l_crl_version");
  tbs->versionPresent = user->versionPresent;
  if (u2l_signature(&user->signature, &tbs->signature) != 0) return err.fail(3, "u2l_signature");
  if (u2l_X500_NAME(&user->issuer, &tbs->issuer) != 0) return err.fail(4, "u2l_X500_NAME");
  if (u2l_X509_TIME(user->thisUpdate, &tbs->thisUpdate) != 0) return err.fail(5, "u2l_X509_TIME");
  if (user->nextUpdatePresent) {
    if (u2l_X509_TIME(user->nextUpdate, &tbs->nextUpdate) != 0) {
      return err.fail(6, "u2l_X509_TIME");
    }
    tbs->nextUpdatePresent = 1;
  }
  if (user->revokedCertificatesPresent) {
    tbs->revokedCertificatesPresent = 1;
    CRL_REVOKED_CERT** tail = &tbs->revokedCertificates;
    for (const USER_revokedCert_INFO* e = user->revokedCertificates; e != nullptr; e = e->next) {
      // The node is linked before it is filled, so a failure leaves it to the caller's free.
      if (new_CRL_REVOKED_CERT(tail) != 0 || u2l_REVOKED_CERT(e, *tail) != 0) {
        return err.fail(7, "u2l_REVOKED_CERT");
      }
      tail = &(*tail)->next;
    }
  }
  if (user->crlExtensionsPresent) {
    if (u2l_CRL_EXTENSIONS(&user->crlExtensions, &tbs->crlExtensions) != 0) {
      return err.fail(8, "u2l_CRL_EXTENSIONS");
    }
    tbs->crlExtensionsPresent = 1;
  }
  return 0;
}

u32 l2u_CRL_TBS_CERT_LIST(const CRL_TBS_CERT_LIST* tbs, USER_crlTbsCertList_INFO* user) {
  ErrorScope err(933);
  std::memset(user, 0, sizeof(*user));
  auto drop = on_exit([&] {
    free_USER_revokedCert_INFO(user->revokedCertificates);
    user->revokedCertificates = nullptr;
  });
  if (l2u_crl_version(tbs->version, &user->version) != 0) return err.fail(1, "l2u_crl_version");
  user->versionPresent = tbs->versionPresent;
  if (l2u_signature(&tbs->signature, &user->signature) != 0) return err.fail(2, "l2u_signature");
  if (l2u_X500_NAME(tbs->issuer, &user->issuer) != 0) return err.fail(3, "l2u_X500_NAME");
  if (l2u_crl_time(&tbs->thisUpdate, user->thisUpdate) != 0) return err.fail(4, "l2u_crl_time");
  if (tbs->nextUpdatePresent) {
    if (l2u_crl_time(&tbs->nextUpdate, user->nextUpdate) != 0) {
      return err.fail(5, "l2u_crl_time");
    }
    user->nextUpdatePresent = 1;
  }
  if (tbs->revokedCertificatesPresent) {
    user->revokedCertificatesPresent = 1;
    USER_revokedCert_INFO** tail = &user->revokedCertificates;
    for (const CRL_REVOKED_CERT* e = tbs->revokedCertificates; e != nullptr; e = e->next) {
      if (new_USER_revokedCert_INFO(tail) != 0) return err.fail(6, "malloc");
      if (l2u_REVOKED_CERT(e, *tail) != 0) return err.fail(7, "l2u_REVOKED_CERT");
      tail = &(*tail)->next;
    }
  }
  if (tbs->crlExtensionsPresent) {
    if (l2u_CRL_EXTENSIONS(&tbs->crlExtensions, &user->crlExtensions) != 0) {
      return err.fail(8, "l2u_CRL_EXTENSIONS");
    }
    user->crlExtensionsPresent = 1;
  }
  drop.release();
  return 0;
}

u32 c2d_USER_crlTbsCertList(const USER_crlTbsCertList_INFO* user, DATA_BUFFER* der) {
  ErrorScope err(934);
  CRL_TBS_CERT_LIST tbs;
  ini_CRL_TBS_CERT_LIST(&tbs);
  auto release = on_exit([&] { free_CRL_TBS_CERT_LIST(&tbs); });
  if (u2l_CRL_TBS_CERT_LIST(user, &tbs) != 0) return err.fail(2, "u2l_CRL_TBS_CERT_LIST");
  if (Der_Encode_CRL_TBS_CERT_LIST(&tbs, der) != 0) {
    return err.fail(3, "Der_Encode_CRL_TBS_CERT_LIST");
  }
  release.release();
  if (free_CRL_TBS_CERT_LIST(&tbs) != 0) {
    free_DATA_BUFFER(der);
    return err.fail(4, "free_CRL_TBS_CERT_LIST");
  }
  return 0;
}

u32 d2c_USER_crlTbsCertList(u32 total, const u8* der, USER_crlTbsCertList_INFO* user) {
  ErrorScope err(935);
  CRL_TBS_CERT_LIST tbs;
  ini_CRL_TBS_CERT_LIST(&tbs);
  auto release = on_exit([&] { free_CRL_TBS_CERT_LIST(&tbs); });
  if (Der_Decode_CRL_TBS_CERT_LIST(total, der, &tbs) != 0) {
    return err.fail(1, "Der_Decode_CRL_TBS_CERT_LIST");
  }
  if (l2u_CRL_TBS_CERT_LIST(&tbs, user) != 0) return err.fail(2, "l2u_CRL_TBS_CERT_LIST");
  release.release();
  if (free_CRL_TBS_CERT_LIST(&tbs) != 0) {
    free_USER_revokedCert_INFO(user->revokedCertificates);
    user->revokedCertificates = nullptr;
    return err.fail(3, "free_CRL_TBS_CERT_LIST");
  }
  return 0;
}

}  // namespace hylorn
