// CRL entries until the CRL layer lands: every call fails cleanly.
#include "hylorn.h"

#pragma GCC diagnostic ignored "-Wunused-parameter"

using u8 = unsigned char;
using u16 = unsigned short;
using u32 = unsigned int;

extern "C" HYLORN_API u32 Crypt_Encode_Crl_Init(u8 version, u16 sigAlg, const u8* params,
                                                u32 paramsLen, HYLORN_NAME_IN(issuer),
                                                const char* thisUpdate, const char* nextUpdate) {
  return 1;
}

extern "C" HYLORN_API u32 Crypt_Encode_Crl_Update(const u8* serial, u32 serialLen,
                                                  const char* revocationDate, u32 extFlags,
                                                  u32 critFlags, u32 reasonCode,
                                                  const char* invalidityDate) {
  return 1;
}

extern "C" HYLORN_API u32 Crypt_Encode_Crl_Final(u32 extFlags, u32 critFlags,
                                                 HYLORN_NAME_IN(akiIssuer), const u8* akiSerial,
                                                 int akiSerialLen, const u8* crlNumber,
                                                 u32 crlNumberLen, const char* keyName,
                                                 const char* secondText, u8* out, u32* outLen) {
  return 1;
}

extern "C" HYLORN_API u32 Crypt_Decode_Crl_Init(void** handle, const u8* der, u32 derLen,
                                                u32* version, u32* sigAlg, u8* params,
                                                u32* paramsLen, HYLORN_NAME_OUT(issuer),
                                                char* thisUpdate, char* nextUpdate) {
  return 1;
}

extern "C" HYLORN_API u32 Crypt_Decode_Crl_Update(void* handle, u8* serial, u32* serialLen,
                                                  char* revocationDate, u32* extFlags,
                                                  u32* critFlags, u32* reasonCode,
                                                  char* invalidityDate) {
  return 1;
}

extern "C" HYLORN_API u32 Crypt_Decode_Crl_Final(void* handle, u32* extFlags, u32* critFlags,
                                                 HYLORN_NAME_OUT(akiIssuer), u8* akiSerial,
                                                 u32* akiSerialLen, u8* crlNumber,
                                                 u32* crlNumberLen) {
  return 1;
}
