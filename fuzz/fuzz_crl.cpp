// Arbitrary bytes into the CRL decoding session: Init, every Update, Final. Whatever
// decodes must fill the caller's fixed buffers within their sizes and terminate its texts.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "hylorn.h"

namespace {

void check(bool ok) {
  if (!ok) std::abort();
}

bool terminated(const char* text, std::size_t size) {
  return strnlen(text, size) < size;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  void* h = nullptr;
  char s[16][HYLORN_NAME_SIZE], t1[HYLORN_TIME_SIZE], t2[HYLORN_TIME_SIZE];
  unsigned char params[HYLORN_PARAMS_SIZE], serial[HYLORN_SERIAL_SIZE], number[128];
  unsigned version, alg, paramsLen = 0, serialLen = 0, ext, crit, code, akiLen = 0, numberLen = 0;
  if (Crypt_Decode_Crl_Init(&h, data, unsigned(size), &version, &alg, params, &paramsLen, s[0],
                            s[1], s[2], s[3], s[4], s[5], s[6], s[7], s[8], s[9], s[10], s[11],
                            s[12], s[13], s[14], s[15], t1, t2) != 0) {
    return 0;
  }
  check(version <= 1 && paramsLen <= HYLORN_PARAMS_SIZE);
  check(terminated(t1, sizeof t1) && terminated(t2, sizeof t2));
  for (const auto& slot : s) check(terminated(slot, sizeof slot));
  char revoked[HYLORN_TIME_SIZE], invalidity[HYLORN_TIME_SIZE] = "";
  while (Crypt_Decode_Crl_Update(h, serial, &serialLen, revoked, &ext, &crit, &code, invalidity) ==
         0) {
    check(serialLen >= 1 && serialLen <= HYLORN_SERIAL_SIZE);
    check(terminated(revoked, sizeof revoked) && terminated(invalidity, sizeof invalidity));
    check((ext & ~0x0C00u) == 0 && (crit & ~ext) == 0);
  }
  check(Crypt_Decode_Crl_Final(h, &ext, &crit, s[0], s[1], s[2], s[3], s[4], s[5], s[6], s[7], s[8],
                               s[9], s[10], s[11], s[12], s[13], s[14], s[15], serial, &akiLen,
                               number, &numberLen) == 0);
  check(akiLen <= HYLORN_SERIAL_SIZE && numberLen <= 128 && (ext & ~0x1001u) == 0);
  return 0;
}
