#pragma once

#include <stdexcept>

#include "hylorn.h"
#include "support/openssl_rsa.h"
#include "support/temp_dir.h"

namespace keys_test {

using namespace hylorn_test;
using u8 = unsigned char;

// A DER element with a definite length of short or long form.
inline Bytes tlv(unsigned char tag, const Bytes& contents) {
  const std::size_t n = contents.size();
  Bytes out = n < 0x80    ? Bytes{tag, u8(n)}
              : n < 0x100 ? Bytes{tag, 0x81, u8(n)}
                          : Bytes{tag, 0x82, u8(n >> 8), u8(n)};
  out.insert(out.end(), contents.begin(), contents.end());
  return out;
}

// n bytes of a fixed pattern, different for each seed.
inline Bytes pattern(std::size_t n, unsigned seed = 3) {
  Bytes b(n);
  for (std::size_t i = 0; i < n; ++i) b[i] = static_cast<u8>(i * 31 + seed);
  return b;
}

struct DerPair {
  Bytes pub;
  Bytes pri;
};

// Our generator's pair, made in a scratch working directory.
inline const DerPair& our_pair() {
  static const DerPair pair = [] {
    TempDir cwd(TempDir::kEnter);
    DerPair p{Bytes(HYLORN_PUBKEY_DER_SIZE), Bytes(HYLORN_PRIKEY_DER_SIZE)};
    unsigned pubLen = 0, priLen = 0;
    if (Crypt_GenRSAKeyPair("keypair.out", 0, p.pub.data(), &pubLen, p.pri.data(), &priLen)) {
      throw std::runtime_error("Crypt_GenRSAKeyPair");
    }
    p.pub.resize(pubLen);
    p.pri.resize(priLen);
    return p;
  }();
  return pair;
}

// A 1024-bit key from OpenSSL, as OpenSSL holds it and as DER.
inline EVP_PKEY* openssl_key() {
  static const EvpKey key = openssl_keygen(1024);
  return key.get();
}
inline const DerPair& openssl_pair() {
  static const DerPair pair{public_der(openssl_key()), private_der(openssl_key())};
  return pair;
}

}  // namespace keys_test
