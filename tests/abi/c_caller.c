/* A plain C program against the shared library: the header must compile as C99 and the
 * exported names it calls must resolve at load time. The calls' own behaviour is tested in
 * the frame tests. */
#include <stdio.h>

#include "hylorn.h"

int main(void) {
  unsigned int major = 0, minor = 0;
  char err[HYLORN_ERR_TEXT_SIZE] = "untouched";

  if (Crypt_Get_Soft_Version(&major, &minor) != 0 || major != 1 || minor != 10) {
    fprintf(stderr, "version %u.%u\n", major, minor);
    return 1;
  }
  if (Crypt_InitEnvironment() != 0 || Crypt_ClearEnvironment() != 0) return 1;
  return Crypt_Get_Err(err) == 0 ? 0 : 1;
}
