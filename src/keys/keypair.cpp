// Key pair generation and the public half of a key name.
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "crypto/keygen.h"
#include "frame/guard.h"
#include "frame/wipe.h"
#include "hylorn.h"
#include "keys/key_der.h"
#include "keys/key_name.h"

using hylorn::RSA_PRIVATE_KEY;
using hylorn::RSA_PUBLIC_KEY;
using hylorn::u32;
using hylorn::u8;

namespace {

// The key file is the private DER alone, and it appears whole or not at all: the DER goes
// into a new file beside the target, readable by its owner only, is flushed to the disk
// and then renamed over the target. A crash or a failed write leaves any earlier file of
// that name untouched and no half-written key behind.
u32 write_key_file(const char* path, const u8* der, u32 derLen) {
  char temp[PATH_MAX];
  const int n = std::snprintf(temp, sizeof temp, "%s.XXXXXX", path);
  if (n < 0 || static_cast<std::size_t>(n) >= sizeof temp) return 1;
  const int fd = ::mkstemp(temp);  // mode 0600
  if (fd < 0) return 1;
  bool ok = true;
  for (u32 done = 0; ok && done < derLen;) {
    const ssize_t w = ::write(fd, der + done, derLen - done);
    ok = w > 0;
    if (ok) done += static_cast<u32>(w);
  }
  ok = ok && ::fsync(fd) == 0;
  ok = ::close(fd) == 0 && ok;
  if (ok && std::rename(temp, path) == 0) return 0;
  ::unlink(temp);
  return 1;
}

}  // namespace

// A slot name generates a pair and drops it (there is no store behind the slots), so
// neither buffer is written. Otherwise both halves go out as DER; "keypair.out" stops
// there, any other name is the key file to create, and failing to create it still leaves
// both outputs written.
extern "C" HYLORN_API u32 Crypt_GenRSAKeyPair(const char* keyName, u32, u8* pubDer, u32* pubDerLen,
                                              u8* priDer, u32* priDerLen) {
  const int slot = hylorn::key_slot_number(keyName);
  RSA_PUBLIC_KEY pub;
  RSA_PRIVATE_KEY pri;
  auto wipe = hylorn::on_exit([&] { hylorn::secure_wipe_object(pri); });
  if (hylorn::Rsa_Gen_Key_Pair(slot, &pub, &pri) != 1) return 1;
  const char* name = keyName != nullptr ? keyName : "";
  const bool no_file = std::strcmp(name, hylorn::KEY_NAME_NO_FILE) == 0;
  if (slot != 0) return 0;
  if (hylorn::c2d_RSA_PUBLIC_KEY(&pub, pubDer, pubDerLen) != 0) return 1;
  if (hylorn::c2d_RSA_PRIVATE_KEY(&pri, priDer, priDerLen) != 0) return 1;
  if (no_file) return 0;
  return write_key_file(name, priDer, *priDerLen);
}

// The public half of a key file. A slot has no public key to give.
extern "C" HYLORN_API u32 Crypt_GetRSAPublicKey(const char* keyName, u32, u8* pubDer,
                                                u32* pubDerLen) {
  int slot = 0;
  RSA_PRIVATE_KEY pri;
  auto wipe = hylorn::on_exit([&] { hylorn::secure_wipe_object(pri); });
  if (hylorn::load_private_key(keyName, &slot, &pri) != 0) return 1;
  RSA_PUBLIC_KEY pub{};
  if (slot != 0) return hylorn::slot_public_key(slot, &pub);
  pub.bits = pri.bits;
  std::memcpy(pub.modulus, pri.modulus, sizeof pub.modulus);
  std::memcpy(pub.exponent, pri.publicExponent, sizeof pub.exponent);
  // This step has always reported success: the encoder, which can fail only when memory
  // runs out, is not asked.
  hylorn::c2d_RSA_PUBLIC_KEY(&pub, pubDer, pubDerLen);
  return 0;
}
