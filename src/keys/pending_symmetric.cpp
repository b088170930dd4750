// Symmetric entries until the cipher lands: they fail cleanly.
#include "hylorn.h"

extern "C" HYLORN_API unsigned int Crypt_Enc_Data_S(const unsigned char*, unsigned int,
                                                    unsigned char*, unsigned int*,
                                                    const unsigned char*) {
  return 1;
}
extern "C" HYLORN_API unsigned int Crypt_Dec_Data_S(const unsigned char*, unsigned int,
                                                    unsigned char*, unsigned int*,
                                                    const unsigned char*) {
  return 1;
}
