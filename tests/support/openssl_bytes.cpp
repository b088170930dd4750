#include "support/openssl_bytes.h"

#include <openssl/asn1.h>

#include <stdexcept>

namespace hylorn_test {

Bytes openssl_digest(const EVP_MD* md, const unsigned char* data, std::size_t n) {
  unsigned char out[EVP_MAX_MD_SIZE];
  unsigned int len = 0;
  if (EVP_Digest(data, n, out, &len, md, nullptr) != 1) throw std::runtime_error("EVP_Digest");
  return Bytes(out, out + len);
}

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

Bytes openssl_tlv(bool constructed, int tag, int xclass, const Bytes& contents) {
  const int n = static_cast<int>(contents.size());
  Bytes out(static_cast<std::size_t>(ASN1_object_size(constructed ? 1 : 0, n, tag)));
  unsigned char* p = out.data();
  ASN1_put_object(&p, constructed ? 1 : 0, n, tag, xclass);
  std::copy(contents.begin(), contents.end(), p);
  return out;
}

}  // namespace hylorn_test
