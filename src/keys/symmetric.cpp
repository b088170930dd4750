// Symmetric encryption under a caller's 16-byte key: thin adapters over the cipher's
// data-level operations, turning their 1 (success) / 0 (failure) into 0 / 1.
#include "crypto/idea.h"
#include "hylorn.h"

extern "C" HYLORN_API unsigned int Crypt_Enc_Data_S(const unsigned char* in, unsigned int inLen,
                                                    unsigned char* out, unsigned int* outLen,
                                                    const unsigned char key[16]) {
  return hylorn::Idea_Encrypt_Data(out, outLen, in, inLen, key, hylorn::IDEA_KEY_LEN) == 1 ? 0 : 1;
}

// An empty ciphertext holds no padding block, so the cipher refuses it like any other
// ciphertext without a marker.
extern "C" HYLORN_API unsigned int Crypt_Dec_Data_S(const unsigned char* in, unsigned int inLen,
                                                    unsigned char* out, unsigned int* outLen,
                                                    const unsigned char key[16]) {
  return hylorn::Idea_Decrypt_Data(out, outLen, in, inLen, key, hylorn::IDEA_KEY_LEN) == 1 ? 0 : 1;
}
