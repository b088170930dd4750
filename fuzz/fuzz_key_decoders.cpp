// Arbitrary bytes as key DER: the two exported key readers, signature checking with the
// bytes as public key, and signing with them as private key. A key that reads must write
// back to DER that reads to the same record; a check never answers outside 0 to 3.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "hylorn.h"
#include "keys/key_der.h"

namespace {

void check(bool ok) {
  if (!ok) std::abort();
}

template <class Record, class Encode, class Decode>
void round_trip(const Record& first, Encode encode, Decode decode) {
  unsigned char der[HYLORN_PRIKEY_DER_SIZE];
  unsigned derLen = 0;
  check(encode(&first, der, &derLen) == 0);
  Record again;
  check(decode(der, derLen, &again) == 0);
  // The numbers come back; bits of a public key may fall into a smaller class once the
  // leading zeros of an over-wide modulus are gone.
  const auto* a = reinterpret_cast<const unsigned char*>(&first);
  const auto* b = reinterpret_cast<const unsigned char*>(&again);
  check(std::memcmp(a + 2, b + 2, sizeof first - 2) == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0 || size > 4096) return 0;
  // An exact copy, so that any read past the input is caught.
  const std::vector<unsigned char> der(data, data + size);
  const int len = static_cast<int>(size);

  unsigned bits = 0;
  unsigned char n[128], e[128], d[128], p[64], q[64], dp[64], dq[64], qinv[64];
  const int pub = Crypt_Decode_Pubkey_Info(der.data(), len, &bits, n, e);
  check(pub == 0 || pub == -1);
  hylorn::RSA_PUBLIC_KEY pubKey;
  check((hylorn::d2c_RSA_PUBLIC_KEY(der.data(), unsigned(size), &pubKey) == 0) == (pub == 0));
  if (pub == 0) {
    check(bits == 512 || bits == 1024);
    round_trip(pubKey, hylorn::c2d_RSA_PUBLIC_KEY, hylorn::d2c_RSA_PUBLIC_KEY);
  }

  const int pri = Crypt_Decode_Prikey_Info(der.data(), len, &bits, n, e, d, p, q, dp, dq, qinv);
  check(pri == 0 || pri == -1);
  if (pri == 0) {
    check(bits == 1024);
    hylorn::RSA_PRIVATE_KEY priKey;
    check(hylorn::d2c_RSA_PRIVATE_KEY(der.data(), unsigned(size), &priKey) == 0);
    round_trip(priKey, hylorn::c2d_RSA_PRIVATE_KEY, hylorn::d2c_RSA_PRIVATE_KEY);
  }

  // The input's own tail as the signature, the whole input as the key.
  static const unsigned char kData[] = "fuzz";
  const unsigned sigLen = size > 128 ? 128 : unsigned(size);
  for (int alg : {3, 4}) {
    const unsigned v = Crypt_Ver_Signature(alg, der.data(), unsigned(size), kData, 4,
                                           der.data() + size - sigLen, sigLen);
    check(v <= 3 && (alg != 4 || v == 3));
  }
  unsigned char sig[HYLORN_RSA_BLOCK_SIZE];
  unsigned outLen = 0;
  const unsigned s = Crypt_Gen_Signature_By_Prikey(2, der.data(), unsigned(size), kData, 4, sig,
                                                   &outLen);
  check(s <= 1 && (s == 1 || pri == 0));
  return 0;
}
