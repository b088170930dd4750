// The cipher against libgcrypt's IDEA in ECB: ours through the block functions (which
// expand the raw key on every call) and through Crypt_Enc_Data_S (padding and chunks
// included); the peer keeps one keyed handle, so it never pays for its key schedule.
#include <gcrypt.h>

#include <cstddef>
#include <string>
#include <vector>

#include "crypto/idea_internal.h"
#include "harness.h"
#include "hylorn.h"

namespace {

using Bytes = std::vector<unsigned char>;

const unsigned char kKey[16] = {0x2B, 0xD6, 0x45, 0x9F, 0x82, 0xC5, 0xB3, 0x00,
                                0x95, 0x2C, 0x49, 0x10, 0x48, 0x81, 0xFF, 0x48};

Bytes pattern(std::size_t n) {
  Bytes b(n);
  for (std::size_t i = 0; i < n; ++i) b[i] = static_cast<unsigned char>(i * 131 + 7);
  return b;
}

gcry_cipher_hd_t keyed_handle() {
  gcry_check_version(nullptr);
  gcry_control(GCRYCTL_DISABLE_SECMEM, 0);
  gcry_control(GCRYCTL_INITIALIZATION_FINISHED, 0);
  gcry_cipher_hd_t h = nullptr;
  gcry_cipher_open(&h, GCRY_CIPHER_IDEA, GCRY_CIPHER_MODE_ECB, 0);
  gcry_cipher_setkey(h, kKey, sizeof kKey);
  return h;
}

void register_blocks(const std::string& label, std::size_t bytes, bool encrypt) {
  static gcry_cipher_hd_t peer_handle = keyed_handle();
  auto ours = [bytes, encrypt](benchmark::State& state) {
    Bytes in = pattern(bytes), out(bytes);
    auto count = static_cast<hylorn::u32>(bytes / 8);
    for (auto _ : state) {
      if (encrypt)
        hylorn::Idea_Encrypt_Blocks(in.data(), count, out.data(), kKey);
      else
        hylorn::Idea_Decrypt_Blocks(in.data(), count, out.data(), kKey);
      benchmark::DoNotOptimize(out.data());
    }
  };
  auto peer = [bytes, encrypt](benchmark::State& state) {
    Bytes in = pattern(bytes), out(bytes);
    for (auto _ : state) {
      if (encrypt)
        gcry_cipher_encrypt(peer_handle, out.data(), bytes, in.data(), bytes);
      else
        gcry_cipher_decrypt(peer_handle, out.data(), bytes, in.data(), bytes);
      benchmark::DoNotOptimize(out.data());
    }
  };
  hylorn_bench::register_pair(std::string(encrypt ? "idea_ecb_enc/" : "idea_ecb_dec/") + label,
                              ours, "libgcrypt", peer, static_cast<long>(bytes));
}

// Crypt_Enc_Data_S pads the message to one more block; the peer enciphers that many bytes.
void register_data_level(const std::string& label, std::size_t bytes) {
  static gcry_cipher_hd_t peer_handle = keyed_handle();
  const std::size_t padded = bytes + 8 - bytes % 8;
  auto ours = [bytes, padded](benchmark::State& state) {
    Bytes in = pattern(bytes), out(padded);
    unsigned int out_len = 0;
    for (auto _ : state) {
      Crypt_Enc_Data_S(in.data(), static_cast<unsigned int>(bytes), out.data(), &out_len, kKey);
      benchmark::DoNotOptimize(out.data());
    }
  };
  auto peer = [padded](benchmark::State& state) {
    Bytes in = pattern(padded), out(padded);
    for (auto _ : state) {
      gcry_cipher_encrypt(peer_handle, out.data(), padded, in.data(), padded);
      benchmark::DoNotOptimize(out.data());
    }
  };
  hylorn_bench::register_pair("idea_enc_data_s/" + label, ours, "libgcrypt", peer,
                              static_cast<long>(bytes));
}

const bool registered = [] {
  register_blocks("64KiB", 64 * 1024, true);
  register_blocks("64KiB", 64 * 1024, false);
  register_blocks("8KiB", 8 * 1024, true);
  register_blocks("64B", 64, true);
  register_data_level("64KiB", 64 * 1024);
  register_data_level("8KiB", 8 * 1024);
  register_data_level("64B", 64);
  return true;
}();

}  // namespace
