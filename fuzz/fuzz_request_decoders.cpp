// Arbitrary bytes as a PKCS #10 request and as a Netscape SPKAC. Whatever reads must stay
// within the caller's fixed fields: NUL-terminated name slots and challenge, a key of
// fewer than 1,024 octets, version 0.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "hylorn.h"

namespace {

void check(bool ok) {
  if (!ok) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > 8192) return 0;
  // An exact copy, so that any read past the input is caught.
  const std::vector<unsigned char> der(data, data + size);
  const unsigned len = static_cast<unsigned>(size);

  char s[16][HYLORN_NAME_SIZE];
  unsigned char key[HYLORN_PUBKEY_SIZE];
  unsigned version = 9, keyLen = 0;
  if (Crypt_Decode_Pkcs10(der.data(), len, &version, s[0], s[1], s[2], s[3], s[4], s[5], s[6], s[7],
                          s[8], s[9], s[10], s[11], s[12], s[13], s[14], s[15], key,
                          &keyLen) == 0) {
    check(version == 0 && keyLen < HYLORN_PUBKEY_SIZE);
    for (const char* slot : s) check(std::memchr(slot, 0, HYLORN_NAME_SIZE) != nullptr);
  }

  char challenge[HYLORN_CHALLENGE_SIZE];
  if (Crypt_Decode_NetscapeCertReq(der.data(), len, key, &keyLen, challenge) == 0) {
    check(keyLen < HYLORN_PUBKEY_SIZE);
    check(std::memchr(challenge, 0, HYLORN_CHALLENGE_SIZE) != nullptr);
  }
  return 0;
}
