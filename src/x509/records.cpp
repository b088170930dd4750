#include "x509/records.h"

#include <cstring>

#include "x509/name.h"

namespace hylorn {

u32 ini_X509_PUBLIC_KEY(X509_PUBLIC_KEY* key) {
  ini_X509_ALG_ID(&key->algorithm);
  return ini_DATA_BUFFER(&key->subjectPublicKey);
}

u32 free_X509_PUBLIC_KEY(X509_PUBLIC_KEY* key) {
  free_X509_ALG_ID(&key->algorithm);
  return free_DATA_BUFFER(&key->subjectPublicKey);
}

u32 ini_X509_TBS_CERT(X509_TBS_CERT* tbs) {
  std::memset(tbs, 0, sizeof *tbs);
  ini_DATA_BUFFER(&tbs->serialNumber);
  ini_X509_ALG_ID(&tbs->signature);
  ini_X509_PUBLIC_KEY(&tbs->subjectPublicKeyInfo);
  ini_BIT_DATA_BUFFER(&tbs->issuerUniqueID);
  ini_BIT_DATA_BUFFER(&tbs->subjectUniqueID);
  return ini_DATA_BUFFER(&tbs->extensions);
}

u32 free_X509_TBS_CERT(X509_TBS_CERT* tbs) {
  free_DATA_BUFFER(&tbs->serialNumber);
  free_X509_ALG_ID(&tbs->signature);
  free_X500_NAME(tbs->issuer);
  tbs->issuer = nullptr;
  free_X500_NAME(tbs->subject);
  tbs->subject = nullptr;
  free_X509_PUBLIC_KEY(&tbs->subjectPublicKeyInfo);
  free_BIT_DATA_BUFFER(&tbs->issuerUniqueID);
  free_BIT_DATA_BUFFER(&tbs->subjectUniqueID);
  return free_DATA_BUFFER(&tbs->extensions);
}

u32 ini_USER_X509_TBS_CERT(USER_X509_TBS_CERT* user) {
  std::memset(user, 0, sizeof *user);
  return 0;
}

}  // namespace hylorn
