// Envelopes and the block cipher under one fixed 1024-bit key. The first input byte picks
// what the rest is:
//   0  a whole envelope, opened with the fixed private key;
//   1  a session key choice and a ciphertext, behind a wrapped key made once at start-up,
//      so the cipher layer of the envelope is reached on every input;
//   2  a 16-byte key and a ciphertext for the symmetric decryptor alone.
// Every opened envelope must equal unwrapping its key by hand and deciphering the rest;
// whatever deciphers must encipher back to the same length, with every block but the
// padded last one unchanged, and decipher again to the same plaintext.
#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "fixed_key.h"
#include "fuzz_support.h"
#include "hylorn.h"

namespace {

using fuzz_fixed::kFixedPrivateKey;
using fuzz_fixed::kFixedPublicKey;
using fuzz_support::check;
using fuzz_support::Cursor;
using fuzz_support::same;
using Bytes = std::vector<unsigned char>;

constexpr std::size_t kMaxCipher = 3 * 4096 + 8;  // three chunks and a padding block
constexpr unsigned kWrapLen = HYLORN_ENVELOPE_KEY_SIZE;
constexpr unsigned kKeyLen = HYLORN_SESSION_KEY_SIZE;

// A session key as the envelope reader sees it: the unwrapped octets, zero-filled to 16
// when fewer came out of the RSA block.
using SessionKey = std::array<unsigned char, kKeyLen>;

// Session keys of 16 octets and of other lengths (the reader takes the first 16 of what
// it unwraps, whatever the length), each wrapped once for the fixed public key.
struct Wrapped {
  SessionKey key;
  Bytes block;
};

std::vector<Wrapped> make_wrapped() {
  std::vector<Wrapped> all;
  for (unsigned len : {16u, 5u, 40u, 1u}) {
    Bytes session(len);
    for (unsigned i = 0; i < len; ++i) session[i] = static_cast<unsigned char>(0x3C + 7 * i);
    Wrapped w{};
    for (unsigned i = 0; i < kKeyLen && i < len; ++i) w.key[i] = session[i];
    w.block.resize(HYLORN_RSA_BLOCK_SIZE);
    unsigned blockLen = 0;
    check(Crypt_Asyn_Enc_Data_By_Pubkey(session.data(), len, w.block.data(), &blockLen,
                                        kFixedPublicKey, sizeof kFixedPublicKey) == 0 &&
          blockLen == kWrapLen);
    all.push_back(w);
  }
  return all;
}

// Deciphers with the symmetric call; on success checks the re-encryption properties and
// returns the plaintext.
bool decipher(const Bytes& cipher, const SessionKey& key, Bytes* plain) {
  plain->assign(cipher.size(), 0);
  unsigned plainLen = 0;
  const unsigned rc = Crypt_Dec_Data_S(cipher.data(), unsigned(cipher.size()), plain->data(),
                                       &plainLen, key.data());
  check(rc <= 1);
  const bool whole_blocks = !cipher.empty() && cipher.size() % 8 == 0;
  if (rc != 0) return false;
  check(whole_blocks && plainLen < cipher.size() && plainLen + 8 >= cipher.size());
  plain->resize(plainLen);

  Bytes again(plainLen + 8);
  unsigned againLen = 0;
  check(Crypt_Enc_Data_S(plain->data(), plainLen, again.data(), &againLen, key.data()) == 0);
  check(againLen == cipher.size());
  // Only the last block carries padding, and the reader ignores what follows its marker.
  check(same(again.data(), againLen - 8, cipher.data(), cipher.size() - 8));
  Bytes back(againLen);
  unsigned backLen = 0;
  check(Crypt_Dec_Data_S(again.data(), againLen, back.data(), &backLen, key.data()) == 0);
  check(same(back.data(), backLen, plain->data(), plain->size()));
  return true;
}

// The session key the reader must find in the envelope's RSA block, unwrapped by hand;
// false when the block does not open.
bool unwrap(const Bytes& envelope, SessionKey* key) {
  unsigned char unwrapped[HYLORN_RSA_BLOCK_SIZE];
  unsigned unwrappedLen = 0;
  if (Crypt_Asyn_Dec_Data_By_Prikey(envelope.data(), kWrapLen, unwrapped, &unwrappedLen,
                                    kFixedPrivateKey, sizeof kFixedPrivateKey) != 0) {
    return false;
  }
  check(unwrappedLen <= HYLORN_RSA_BLOCK_SIZE);
  *key = SessionKey{};
  for (unsigned i = 0; i < kKeyLen && i < unwrappedLen; ++i) (*key)[i] = unwrapped[i];
  return true;
}

// Opens the envelope with the fixed key. With the session key known, the envelope opens
// exactly when its ciphertext deciphers under that key; without it, an envelope that
// opens is unwrapped by hand to compare (each RSA private operation costs more than the
// rest of an input, so a refused envelope is not unwrapped a second time).
void open(const Bytes& envelope, const SessionKey* known) {
  Bytes out(envelope.size() > kWrapLen ? envelope.size() - kWrapLen : 0);
  unsigned outLen = 0;
  const unsigned rc =
      Crypt_Dec_Data_By_Prikey(envelope.data(), unsigned(envelope.size()), out.data(), &outLen,
                               kFixedPrivateKey, sizeof kFixedPrivateKey);
  check(rc <= 1);
  if (envelope.size() <= kWrapLen) {
    check(rc == 1);
    return;
  }
  SessionKey key{};
  if (known != nullptr) {
    key = *known;
  } else if (rc == 0) {
    check(unwrap(envelope, &key));
  } else {
    return;
  }
  Bytes plain;
  const bool expected = decipher(Bytes(envelope.begin() + kWrapLen, envelope.end()), key, &plain);
  check((rc == 0) == expected);
  if (rc == 0) check(same(out.data(), outLen, plain.data(), plain.size()));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::vector<Wrapped> wrapped = make_wrapped();
  if (size > 1 + 1 + kKeyLen + kWrapLen + kMaxCipher) return 0;
  Cursor in(data, size);
  const unsigned mode = in.byte() % 3;
  std::size_t n = 0;
  if (mode == 0) {
    const std::uint8_t* at = in.rest(&n);
    open(Bytes(at, at + n), nullptr);
  } else if (mode == 1) {
    const Wrapped& w = wrapped[in.byte() % wrapped.size()];
    const std::uint8_t* at = in.rest(&n);
    Bytes envelope(w.block);
    envelope.insert(envelope.end(), at, at + n);
    open(envelope, &w.key);
  } else {
    SessionKey key{};
    const std::uint8_t* k = in.take(kKeyLen, &n);
    for (std::size_t i = 0; i < n; ++i) key[i] = k[i];
    const std::uint8_t* at = in.rest(&n);
    Bytes plain;
    decipher(Bytes(at, at + n), key, &plain);
  }
  return 0;
}
