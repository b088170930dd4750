/* A plain C program against the shared library: the header must compile as C99 and the
 * exported names must resolve at load time. */
#include <stdio.h>
#include <string.h>

#include "hylorn.h"

int main(void) {
  unsigned int major = 0, minor = 0;
  char err[HYLORN_ERR_TEXT_SIZE];

  if (Crypt_Get_Soft_Version(&major, &minor) != 0 || major != 1 || minor != 10) {
    fprintf(stderr, "version %u.%u\n", major, minor);
    return 1;
  }
  if (Crypt_InitEnvironment() != 0 || Crypt_ClearEnvironment() != 0) return 1;
  /* Nothing has failed yet: the error text is left as the caller had it. */
  strcpy(err, "untouched");
  if (Crypt_Get_Err(err) != 0 || strcmp(err, "untouched") != 0) return 1;
  return 0;
}
