#include "cert_calls.h"

#include <cstring>

namespace x509_test {

unsigned encode_cert(const CertInput& in, Bytes* out) {
  Bytes der(HYLORN_CERT_DER_SIZE);
  unsigned derLen = 0;
  const auto& p = in.policies;
  const unsigned rc = Crypt_Encode_Cert(
      in.version, in.serial.data(), (unsigned short)(in.serial.size()), in.sigAlg, in.params.data(),
      int(in.params.size()), IN_SLOTS(in.issuer), in.notBefore.c_str(), in.notAfter.c_str(),
      IN_SLOTS(in.subject), in.pubKey.data(), (unsigned short)(in.pubKey.size()), nullptr, 0,
      nullptr, 0, in.extFlags, in.critFlags, IN_SLOTS(in.akiIssuer), in.akiSerial.data(),
      int(in.akiSerial.size()), p[0].oid.data(), p[0].length_arg(), p[0].qualifier.c_str(),
      p[1].oid.data(), p[1].length_arg(), p[1].qualifier.c_str(), p[2].oid.data(),
      p[2].length_arg(), p[2].qualifier.c_str(), p[3].oid.data(), p[3].length_arg(),
      p[3].qualifier.c_str(), in.pkupNotBefore.c_str(), in.pkupNotAfter.c_str(), in.cA, in.pathLen,
      in.keyUsage, in.nsCertType, in.setCertType, in.hashedRootKey.data(),
      unsigned(in.hashedRootKey.size()), 0, nullptr, 0, in.keyName.c_str(), "", der.data(),
      &derLen);
  out->assign(der.begin(), der.begin() + (rc == 0 ? derLen : 0));
  return rc;
}

unsigned decode_cert(const Bytes& der, CertOutput* o, std::optional<u8> fill) {
  if (fill) std::memset(o, *fill, sizeof *o);
  return Crypt_Decode_Cert(
      der.data(), unsigned(der.size()), &o->version, o->serial, &o->serialLen, &o->sigAlg,
      o->params, &o->paramsLen, OUT_SLOTS(o->issuer), o->notBefore, o->notAfter,
      OUT_SLOTS(o->subject), o->pubKey, &o->pubKeyLen, o->issuerUID, &o->issuerUIDLen,
      o->subjectUID, &o->subjectUIDLen, o->signature, &o->signatureLen, &o->extFlags, &o->critFlags,
      OUT_SLOTS(o->akiIssuer), o->akiSerial, &o->akiSerialLen, o->policyOid[0], &o->policyOidLen[0],
      o->policyQualifier[0], o->policyOid[1], &o->policyOidLen[1], o->policyQualifier[1],
      o->policyOid[2], &o->policyOidLen[2], o->policyQualifier[2], o->policyOid[3],
      &o->policyOidLen[3], o->policyQualifier[3], o->pkupNotBefore, o->pkupNotAfter, &o->cA,
      &o->pathLen, &o->keyUsage, &o->nsCertType, &o->setCertType, o->hashedRootKey,
      &o->hashedRootKeyLen, &o->policyCount, o->subjectKeyId, &o->subjectKeyIdLen);
}

}  // namespace x509_test
