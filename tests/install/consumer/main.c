/* An outside program built against an installed hylorn: it reads the version and hashes
 * the RFC 1321 test string "abc". */
#include <hylorn.h>
#include <stdio.h>
#include <string.h>

int main(void) {
  static const unsigned char expected[16] = {0x90, 0x01, 0x50, 0x98, 0x3c, 0xd2, 0x4f, 0xb0,
                                             0xd6, 0x96, 0x3f, 0x7d, 0x28, 0xe1, 0x7f, 0x72};
  unsigned int major = 0, minor = 0, len = 0;
  unsigned char digest[HYLORN_DIGEST_SIZE];
  Crypt_Get_Soft_Version(&major, &minor);
  if (Crypt_Gen_Hash(2, (const unsigned char *)"abc", 3, digest, &len) != 0 || len != 16 ||
      memcmp(digest, expected, 16) != 0) {
    fprintf(stderr, "MD5 of \"abc\" is wrong\n");
    return 1;
  }
  printf("hylorn %u.%u\n", major, minor);
  return 0;
}
