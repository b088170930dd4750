// PEM and character-code entries until their implementation lands: they fail cleanly.
#include "hylorn.h"

extern "C" HYLORN_API unsigned int DER2PEM_data_format(const unsigned char*, unsigned int, char*,
                                                       unsigned int*, const char*, const char*) {
  return 1;
}
extern "C" HYLORN_API unsigned int PEM2DER_data_format(const char*, int, unsigned char*,
                                                       unsigned int*) {
  return 1;
}
extern "C" HYLORN_API unsigned int Crypt_Char2Int(const char*, unsigned char*, unsigned int*) {
  return 1;
}
extern "C" HYLORN_API unsigned int Crypt_Int2Char(const unsigned char*, int, char*) { return 1; }
