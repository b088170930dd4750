// Request entries until the request layer lands: every call fails cleanly.
#include "hylorn.h"

#pragma GCC diagnostic ignored "-Wunused-parameter"

using u8 = unsigned char;
using u32 = unsigned int;

extern "C" HYLORN_API u32 Crypt_Encode_Pkcs10(u8 version, HYLORN_NAME_IN(subject),
                                              const u8* pubKey, u32 pubKeyLen,
                                              const char* keyName, const char* secondText,
                                              u8* out, u32* outLen) {
  return 1;
}

extern "C" HYLORN_API u32 Crypt_Decode_Pkcs10(const u8* der, u32 derLen, u32* version,
                                              HYLORN_NAME_OUT(subject), u8* pubKey,
                                              u32* pubKeyLen) {
  return 1;
}

extern "C" HYLORN_API u32 Crypt_Decode_NetscapeCertReq(const u8* der, u32 derLen, u8* pubKey,
                                                       u32* pubKeyLen, char* challenge) {
  return 1;
}
