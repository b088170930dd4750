#include "key_fixtures.h"

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <stdexcept>

#include "hylorn.h"

namespace keys_test {

const DerPair& our_pair() {
  static const DerPair pair = [] {
    DerPair p{Bytes(HYLORN_PUBKEY_DER_SIZE), Bytes(HYLORN_PRIKEY_DER_SIZE)};
    unsigned pubLen = 0, priLen = 0;
    if (Crypt_GenRSAKeyPair("keypair.out", 0, p.pub.data(), &pubLen, p.pri.data(), &priLen) != 0) {
      throw std::runtime_error("Crypt_GenRSAKeyPair");
    }
    p.pub.resize(pubLen);
    p.pri.resize(priLen);
    return p;
  }();
  return pair;
}

EVP_PKEY* openssl_key() {
  static const EvpKey key = openssl_rsa(1024);
  return key.get();
}

const DerPair& openssl_pair() {
  static const DerPair pair{public_der(openssl_key()), private_der(openssl_key())};
  return pair;
}

InTempDir::InTempDir() : previous_(std::filesystem::current_path().string()) {
  std::filesystem::current_path(dir_.dir());
}

InTempDir::~InTempDir() {
  std::error_code ec;
  std::filesystem::current_path(previous_, ec);
}

std::vector<std::string> InTempDir::entries() const {
  std::vector<std::string> names;
  for (const auto& e : std::filesystem::directory_iterator(dir_.dir())) {
    names.push_back(e.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace keys_test
