// Signature checks with one fixed, valid public key; the fuzzer picks the hash number,
// the data and the signature. The first input byte picks how the signature is made:
//   0  taken from the input as it stands;
//   1  a type 1 RSA block of the fixed private key around octets from the input,
//      optionally behind the DigestInfo of the data, so the comparison after the RSA
//      step is reached on every input;
//   2  made by the library's signer, then one bit of it or of the data flipped.
// The answer must follow from the inputs alone, and checking through the fixed root
// certificate (which holds the same key) must give the same answer.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "fixed_key.h"
#include "fuzz_support.h"
#include "hylorn.h"

namespace {

using fuzz_fixed::kFixedPrivateKey;
using fuzz_fixed::kFixedPublicKey;
using fuzz_fixed::kFixedRoot;
using fuzz_support::check;
using fuzz_support::Cursor;
using Bytes = std::vector<unsigned char>;

constexpr unsigned kValid = 0, kRsaFailed = 1, kMismatch = 2, kUnsupported = 3;
constexpr std::size_t kMaxBlockData = HYLORN_RSA_BLOCK_SIZE - 11;

bool supported(int alg) {
  return alg == 1 || alg == 2 || alg == 3 || alg == 5 || alg == 6 || alg == 7;
}

unsigned verify(int alg, const Bytes& data, const Bytes& sig) {
  const unsigned rc = Crypt_Ver_Signature(alg, kFixedPublicKey, sizeof kFixedPublicKey, data.data(),
                                          unsigned(data.size()), sig.data(), unsigned(sig.size()));
  check(rc <= kUnsupported && (rc == kUnsupported) == !supported(alg));
  check(Crypt_Ver_Signature_ByCert(alg, kFixedRoot, sizeof kFixedRoot, data.data(),
                                   unsigned(data.size()), sig.data(), unsigned(sig.size())) == rc);
  return rc;
}

Bytes encoded_hash(int alg, const Bytes& data) {
  Bytes info(HYLORN_ENCODED_HASH_SIZE);
  unsigned infoLen = 0;
  if (Crypt_Gen_Encoded_Hash(alg, data.data(), unsigned(data.size()), info.data(), &infoLen) != 0)
    return {};
  info.resize(infoLen);
  return info;
}

// Octets from the input as the signature: longer than the modulus is always refused.
void raw(int alg, Cursor& in) {
  std::size_t n = 0;
  const std::uint8_t* s = in.take(in.byte(), &n);
  const Bytes sig(s, s + n);
  const std::uint8_t* d = in.rest(&n);
  const unsigned rc = verify(alg, Bytes(d, d + n), sig);
  if (supported(alg) && sig.size() > HYLORN_RSA_BLOCK_SIZE) check(rc == kRsaFailed);
}

// A well-formed block whose contents the input chooses: valid exactly when they begin
// with the DigestInfo of the data, whatever follows it.
void chosen_block(int alg, Cursor& in) {
  const bool lead_with_hash = in.byte() & 1;
  std::size_t n = 0;
  const std::uint8_t* b = in.take(in.byte() % (kMaxBlockData + 1), &n);
  Bytes block(b, b + n);
  const std::uint8_t* d = in.rest(&n);
  const Bytes data(d, d + n);
  const Bytes info = encoded_hash(alg, data);
  if (lead_with_hash) block.insert(block.begin(), info.begin(), info.end());
  if (block.size() > kMaxBlockData) block.resize(kMaxBlockData);
  Bytes sig(HYLORN_RSA_BLOCK_SIZE);
  unsigned sigLen = 0;
  check(Crypt_Asyn_Enc_Data_By_Prikey(block.data(), unsigned(block.size()), sig.data(), &sigLen,
                                      kFixedPrivateKey, sizeof kFixedPrivateKey) == 0);
  sig.resize(sigLen);
  const unsigned rc = verify(alg, data, sig);
  if (!supported(alg)) return;
  const bool starts =
      block.size() >= info.size() && std::equal(info.begin(), info.end(), block.begin());
  check(rc == (starts ? kValid : kMismatch));
}

// The library's own signature verifies; one flipped bit of the data never does, and one
// flipped bit of the signature breaks the block or the digest.
void signed_then_flipped(int alg, Cursor& in) {
  const unsigned low = in.byte();
  const unsigned bit = low | unsigned(in.byte()) << 8;
  const bool flip_data = bit & 0x8000;
  std::size_t n = 0;
  const std::uint8_t* d = in.rest(&n);
  Bytes data(d, d + n);
  Bytes sig(HYLORN_RSA_BLOCK_SIZE);
  unsigned sigLen = 0;
  const unsigned made =
      Crypt_Gen_Signature_By_Prikey(alg, kFixedPrivateKey, sizeof kFixedPrivateKey, data.data(),
                                    unsigned(data.size()), sig.data(), &sigLen);
  check((made == 0) == supported(alg));
  if (made != 0) return;
  check(sigLen == HYLORN_RSA_BLOCK_SIZE);
  check(verify(alg, data, sig) == kValid);
  if (flip_data && !data.empty()) {
    data[(bit & 0x7FFF) / 8 % data.size()] ^= static_cast<unsigned char>(1u << (bit % 8));
    check(verify(alg, data, sig) == kMismatch);
  } else {
    sig[(bit & 0x7FFF) / 8 % sig.size()] ^= static_cast<unsigned char>(1u << (bit % 8));
    check(verify(alg, data, sig) != kValid);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > 4096) return 0;
  Cursor in(data, size);
  const unsigned mode = in.byte() % 3;
  // Hash numbers around the supported 1 to 7, and the far ends of an int.
  const std::uint8_t a = in.byte();
  const int alg = a == 0xFF ? -2147483647 - 1 : a == 0xFE ? 2147483647 : int(a % 12) - 2;
  if (mode == 0) raw(alg, in);
  if (mode == 1) chosen_block(alg, in);
  if (mode == 2) signed_then_flipped(alg, in);
  return 0;
}
