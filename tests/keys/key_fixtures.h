// Keys shared by the key-service tests, made once per test binary: generating them is
// the slow part of these suites.
#pragma once

#include <openssl/evp.h>

#include <string>
#include <vector>

#include "openssl_keys.h"

namespace keys_test {

struct DerPair {
  Bytes pub;
  Bytes pri;
};

// A pair from our own generator (Crypt_GenRSAKeyPair with "keypair.out").
const DerPair& our_pair();
// A 1024-bit pair from OpenSSL, as OpenSSL and as DER.
EVP_PKEY* openssl_key();
const DerPair& openssl_pair();

// While it lives, the working directory is a fresh empty temporary directory, so that
// names without a directory part land there and nowhere else.
class InTempDir {
 public:
  InTempDir();
  ~InTempDir();
  InTempDir(const InTempDir&) = delete;
  InTempDir& operator=(const InTempDir&) = delete;
  const TempDir& dir() const { return dir_; }
  // Entries of the directory, by name.
  std::vector<std::string> entries() const;

 private:
  TempDir dir_;
  std::string previous_;
};

}  // namespace keys_test
