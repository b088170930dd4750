#include "support/openssl_bytes.h"

namespace hylorn_test {

Bytes bn_bytes(const BIGNUM* bn) {
  Bytes out(static_cast<std::size_t>(BN_num_bytes(bn)));
  BN_bn2bin(bn, out.data());
  return out;
}

std::string bn_decimal(const Bytes& magnitude) {
  BIGNUM* bn = BN_bin2bn(magnitude.data(), static_cast<int>(magnitude.size()), nullptr);
  char* dec = BN_bn2dec(bn);
  std::string s = dec;
  OPENSSL_free(dec);
  BN_free(bn);
  return s;
}

}  // namespace hylorn_test
