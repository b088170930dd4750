/* A plain C program against the shared library: the header must compile as C99 and the
 * exported names must resolve at load time. */
#include <stdio.h>
#include <string.h>

#include "hylorn.h"

/* A body without its footer line fails, and the error list says why. */
static int pem_failure(void) {
  static const char pem[] = "-----BEGIN X-----\r\nMAIFAA==\r\n";
  unsigned char der[16];
  unsigned int derLen = 0;
  char err[HYLORN_ERR_TEXT_SIZE];

  if (PEM2DER_data_format(pem, (int)strlen(pem), der, &derLen) != 1) return 1;
  if (Crypt_Get_Err(err) != 0) return 1;
  if (strcmp(err, "func_no = 155 err_no = 3 err_msg = not find three ----- \n") != 0) {
    fprintf(stderr, "error text: %s", err);
    return 1;
  }
  return 0;
}

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
  if (pem_failure() != 0) return 1;
  return 0;
}
