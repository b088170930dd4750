// Our fixed-width key records filled with the numbers of an OpenSSL key, and back.
#pragma once

#include <openssl/core_names.h>

#include <array>

#include "bn_model.h"
#include "crypto/rsa_keys.h"
#include "support/openssl_rsa.h"

namespace hylorn_test {

inline Bn field_bn(const unsigned char* field, int width) {
  return Bn(BN_bin2bn(field, width, nullptr));
}

struct Field {
  unsigned char* at;
  int width;
  const char* name;
};

// The private record's numbers in the order n, e, d, p, q, dP, dQ, qInv.
inline std::array<Field, 8> private_fields(hylorn::RSA_PRIVATE_KEY& r) {
  return {{{r.modulus, 128, OSSL_PKEY_PARAM_RSA_N},
           {r.publicExponent, 128, OSSL_PKEY_PARAM_RSA_E},
           {r.exponent, 128, OSSL_PKEY_PARAM_RSA_D},
           {r.prime[0], 64, OSSL_PKEY_PARAM_RSA_FACTOR1},
           {r.prime[1], 64, OSSL_PKEY_PARAM_RSA_FACTOR2},
           {r.primeExponent[0], 64, OSSL_PKEY_PARAM_RSA_EXPONENT1},
           {r.primeExponent[1], 64, OSSL_PKEY_PARAM_RSA_EXPONENT2},
           {r.coefficient, 64, OSSL_PKEY_PARAM_RSA_COEFFICIENT1}}};
}

// An OpenSSL key holding exactly the numbers of our private record.
inline EvpKey pkey_of(hylorn::RSA_PRIVATE_KEY r) {
  std::array<Bytes, 8> numbers;
  auto fields = private_fields(r);
  for (std::size_t i = 0; i < fields.size(); ++i)
    numbers[i].assign(fields[i].at, fields[i].at + fields[i].width);
  return key_from_numbers(numbers);
}

// An OpenSSL key and our two records of it.
struct Keys {
  EvpKey pkey;
  hylorn::RSA_PUBLIC_KEY pub;
  hylorn::RSA_PRIVATE_KEY priv;
};

// OpenSSL makes p > q, as our records require; the check keeps it honest.
inline Keys make_keys(unsigned bits, unsigned long e = 65537) {
  Keys k{openssl_keygen(bits, e), {}, {}};
  for (const Field& f : private_fields(k.priv)) {
    Bytes v = key_number(k.pkey.get(), f.name, f.width);
    std::copy(v.begin(), v.end(), f.at);
  }
  k.pub.bits = k.priv.bits = static_cast<hylorn::u16>(bits);
  std::copy_n(k.priv.modulus, 128, k.pub.modulus);
  std::copy_n(k.priv.publicExponent, 128, k.pub.exponent);
  EXPECT_GT(BN_cmp(field_bn(k.priv.prime[0], 64).get(), field_bn(k.priv.prime[1], 64).get()), 0);
  return k;
}

}  // namespace hylorn_test
