// Certificate entries until the certificate layer lands. They behave as they will for
// input that does not decode: decoders and queries fail, verification answers 3.
#include "hylorn.h"

#pragma GCC diagnostic ignored "-Wunused-parameter"

using u8 = unsigned char;
using u16 = unsigned short;
using u32 = unsigned int;

extern "C" HYLORN_API u32 Crypt_Get_PubKey_FromCert(const u8* cert, u32 certLen, u8* pubDer,
                                                    u32* pubDerLen) {
  return 1;
}

extern "C" HYLORN_API u32 Crypt_Ver_Signature_ByCert(int alg, const u8* cert, u32 certLen,
                                                     const u8* data, u32 dataLen, const u8* sig,
                                                     u32 sigLen) {
  return 3;
}

extern "C" HYLORN_API u32 Crypt_Encode_Cert(
    u8 version, const u8* serial, u16 serialLen, u16 sigAlg, const u8* params, int paramsLen,
    HYLORN_NAME_IN(issuer), const char* notBefore, const char* notAfter, HYLORN_NAME_IN(subject),
    const u8* pubKey, u16 pubKeyLen, const u8* issuerUID, u32 issuerUIDLen, const u8* subjectUID,
    u32 subjectUIDLen, u32 extFlags, u32 critFlags, HYLORN_NAME_IN(akiIssuer),
    const u8* akiSerial, int akiSerialLen, const u8* policyOid1, int policyOid1Len,
    const char* policyQualifier1, const u8* policyOid2, int policyOid2Len,
    const char* policyQualifier2, const u8* policyOid3, int policyOid3Len,
    const char* policyQualifier3, const u8* policyOid4, int policyOid4Len,
    const char* policyQualifier4, const char* pkupNotBefore, const char* pkupNotAfter, u8 cA,
    int pathLen, u32 keyUsage, u32 nsCertType, u32 setCertType, const u8* hashedRootKey,
    u32 hashedRootKeyLen, u32 ignored87, const u8* ignored88, u32 ignored89,
    const char* keyName, const char* secondText, u8* out, u32* outLen) {
  return 1;
}

extern "C" HYLORN_API u32 Crypt_Decode_Cert(
    const u8* der, u32 derLen, u32* version, u8* serial, u32* serialLen, u32* sigAlg, u8* params,
    u32* paramsLen, HYLORN_NAME_OUT(issuer), char* notBefore, char* notAfter,
    HYLORN_NAME_OUT(subject), u8* pubKey, u32* pubKeyLen, u8* issuerUID, u32* issuerUIDLen,
    u8* subjectUID, u32* subjectUIDLen, u8* signature, u32* signatureLen, u32* extFlags,
    u32* critFlags, HYLORN_NAME_OUT(akiIssuer), u8* akiSerial, u32* akiSerialLen,
    u8* policyOid1, u32* policyOid1Len, char* policyQualifier1, u8* policyOid2,
    u32* policyOid2Len, char* policyQualifier2, u8* policyOid3, u32* policyOid3Len,
    char* policyQualifier3, u8* policyOid4, u32* policyOid4Len, char* policyQualifier4,
    char* pkupNotBefore, char* pkupNotAfter, u8* cA, int* pathLen, u32* keyUsage,
    u32* nsCertType, u32* setCertType, u8* hashedRootKey, u32* hashedRootKeyLen,
    u32* policyCount, u8* subjectKeyId, u32* subjectKeyIdLen) {
  return 1;
}

extern "C" HYLORN_API int Crypt_Get_Char_Info_FromCert(const u8* cert, u32 certLen, u32 item,
                                                       u8* out, u32* outLen) {
  return 1;
}

extern "C" HYLORN_API u32 Crypt_Ver_Cert_ByRootCert(const u8* cert, u32 certLen,
                                                    const u8* rootCert, u32 rootCertLen) {
  return 1;
}

extern "C" HYLORN_API u32 Crypt_Gen_Cert_Chain(const u8* cert1, u32 cert1Len, const u8* cert2,
                                               u32 cert2Len, u8* out, u32* outLen) {
  return 1;
}

extern "C" HYLORN_API u32 Crypt_Gen_Ie_Cert_Chain(const u8* chain, u32 chainLen, u8* out,
                                                  u32* outLen) {
  return 1;
}
