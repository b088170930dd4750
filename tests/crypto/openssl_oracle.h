// OpenSSL as the independent reference for digests in the crypto tests.
#pragma once

#include <openssl/evp.h>

#include <cstddef>
#include <stdexcept>
#include <vector>

namespace hylorn_test {

inline std::vector<unsigned char> openssl_digest(const EVP_MD* md, const unsigned char* data,
                                                 std::size_t n) {
  unsigned char out[EVP_MAX_MD_SIZE];
  unsigned int len = 0;
  if (EVP_Digest(data, n, out, &len, md, nullptr) != 1) throw std::runtime_error("EVP_Digest");
  return std::vector<unsigned char>(out, out + len);
}

}  // namespace hylorn_test
