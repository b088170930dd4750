// Key, signature and envelope entries until their implementation lands: they fail cleanly.
#include "hylorn.h"

using u8 = unsigned char;
using u32 = unsigned int;

extern "C" HYLORN_API u32 Crypt_GenRSAKeyPair(const char*, u32, u8*, u32*, u8*, u32*) { return 1; }
extern "C" HYLORN_API u32 Crypt_GetRSAPublicKey(const char*, u32, u8*, u32*) { return 1; }
extern "C" HYLORN_API u32 Crypt_Gen_Signature(int, const char*, const char*, const u8*, u32, u8*,
                                              u32*) {
  return 1;
}
extern "C" HYLORN_API u32 Crypt_Gen_Signature_By_Prikey(int, const u8*, u32, const u8*, u32, u8*,
                                                        u32*) {
  return 1;
}
extern "C" HYLORN_API u32 Crypt_Ver_Signature(int, const u8*, u32, const u8*, u32, const u8*,
                                              u32) {
  return 1;
}
extern "C" HYLORN_API u32 Crypt_Asyn_Enc_Data_By_Prikey(const u8*, u32, u8*, u32*, const u8*,
                                                        u32) {
  return 1;
}
extern "C" HYLORN_API u32 Crypt_Asyn_Dec_Data_By_Pubkey(const u8*, u32, u8*, u32*, const u8*,
                                                        u32) {
  return 1;
}
extern "C" HYLORN_API u32 Crypt_Asyn_Enc_Data_By_Pubkey(const u8*, u32, u8*, u32*, const u8*,
                                                        u32) {
  return 1;
}
extern "C" HYLORN_API u32 Crypt_Asyn_Dec_Data_By_Prikey(const u8*, u32, u8*, u32*, const u8*,
                                                        u32) {
  return 1;
}
extern "C" HYLORN_API u32 Crypt_Enc_Data(const u8*, u32, u8*, u32*, const u8*, u32) { return 1; }
extern "C" HYLORN_API u32 Crypt_Dec_Data(const u8*, u32, u8*, u32*, const char*) { return 1; }
extern "C" HYLORN_API u32 Crypt_Dec_Data_By_Prikey(const u8*, u32, u8*, u32*, const u8*, u32) {
  return 1;
}
