// Crypt_Gen_RandomBytes: the exported draw from the module random state.
#include "crypto/random.h"
#include "hylorn.h"

extern "C" HYLORN_API unsigned int Crypt_Gen_RandomBytes(unsigned char* out, unsigned int len) {
  hylorn::u8 scratch[16];
  return hylorn::Random_Get_Bytes(out, len, scratch, sizeof scratch) == 1 ? 0 : 1;
}
