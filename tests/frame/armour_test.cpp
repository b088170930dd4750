#include <gtest/gtest.h>
#include <openssl/pem.h>

#include <cstring>
#include <optional>
#include <random>

#include "frame/base64.h"
#include "frame/error.h"
#include "hylorn.h"
#include "support/alloc_failure.h"
#include "support/random_bytes.h"

namespace {

using namespace hylorn_test;

// Where decoding stops and what it skips; hex nullptr: the one "not 4" entry.
TEST(Base64, DecodeStopsAndSkipsAsDocumented) {
  // clang-format off
  const std::pair<const char*, const char*> cases[] = {
      {"", ""}, {"Zg==", "66"}, {"Zm8=", "666f"}, {"Zm9vYg==", "666f6f62"},
      {"Zm9vYmE=", "666f6f6261"}, {"Zm9vYmFy", "666f6f626172"},
      {"Zm", ""}, {"Zm9", ""}, {"Zg==Zm9v", "66"}, {"Zm8=Zm9v", "666f"}, {"Z===Zm9v", ""},
      {"=Zg=Zm9v", "01"}, {"====", ""}, {"=Zg9", "0198"}, {"Zm9vYg", "666f6f"},
      {"Zm9vYmFyZm9", "666f6f626172"}, {"Zm 9\r\nv", "666f6f"}, {"!!!!", nullptr},
      {"Zm9v\r\n", "666f6f"},  // position 4 + 4 is past the end: stop
      {"Zm9v\r\nYg", nullptr}, // 4 characters remain, only 2 count
      {"Zm9vYm\r\n", nullptr}, {"Zm9vYmF\r", nullptr}, {"Zm9v\x80\xff\x01-Yg==", "666f6f62"}};
  // clang-format on
  for (auto [text, hex] : cases) {
    hylorn::Crypt_Put_Err(1, 1, "left by an earlier call");
    Bytes buf(3 * std::strlen(text) / 4);
    unsigned len = 12345;
    const bool ok = hylorn::base64_decode(text, buf.data(), &len) == 0;
    EXPECT_EQ(ok, hex != nullptr) << text;
    EXPECT_EQ(ok ? to_hex(buf.data(), len) : "", hex ? hex : "") << text;
    EXPECT_EQ(read_errors(), (ok ? Entries{} : Entries{{151, 1, "base64 decode, not 4"}})) << text;
  }
}

const char kBegin[] = "-----BEGIN CERTIFICATE-----";
const char kEnd[] = "-----END CERTIFICATE-----";

std::size_t documented_room(std::size_t derLen, const char* header, const char* footer) {
  return std::strlen(header) + std::strlen(footer) + 4 * ((derLen + 2) / 3) +
         2 * ((derLen + 47) / 48) + 5;
}

// DER to PEM in a buffer of exactly the documented room.
std::string der2pem(const Bytes& der, const char* header = kBegin, const char* footer = kEnd) {
  std::vector<char> out(documented_room(der.size(), header, footer), '#');
  unsigned len = 0;
  EXPECT_EQ(DER2PEM_data_format(der.data(), unsigned(der.size()), out.data(), &len, header, footer),
            0u);
  EXPECT_LT(len, out.size());
  EXPECT_EQ(out[len], '\0');
  return std::string(out.data(), len);
}

// PEM to DER from an unterminated copy of exactly pemLen bytes, to show overreads.
std::optional<Bytes> pem2der(const std::string& text) {
  std::vector<char> in(text.begin(), text.end());
  Bytes der(3 * text.size() / 4);
  unsigned len = 0;
  if (PEM2DER_data_format(in.data(), int(in.size()), der.data(), &len) != 0) return std::nullopt;
  EXPECT_LE(len, der.size());
  return Bytes(der.begin(), der.begin() + len);
}

// OpenSSL's PEM text, with the CR LF line ends we write.
std::string openssl_write(const char* name, const Bytes& der) {
  BIO* bio = BIO_new(BIO_s_mem());
  PEM_write_bio(bio, name, "", der.data(), long(der.size()));
  char* p = nullptr;
  const long n = BIO_get_mem_data(bio, &p);
  const std::string text(p, std::size_t(n));
  BIO_free(bio);
  std::string crlf;
  for (char c : text) crlf += c == '\n' ? std::string("\r\n") : std::string(1, c);
  return crlf;
}

TEST(Pem, MatchesOpenSslBothWaysAtEveryLength) {
  std::mt19937 rng(7468);
  for (std::size_t n = 0; n <= 200; n += n < 100 ? 1 : 7) {
    const Bytes der = random_bytes(rng, n);
    hylorn::Crypt_Put_Err(1, 1, "left by an earlier call");
    const std::string ours = der2pem(der);
    EXPECT_TRUE(read_errors().empty());
    EXPECT_EQ(ours, openssl_write("CERTIFICATE", der)) << n;
    EXPECT_EQ(ours.size() + 1, documented_room(n, kBegin, kEnd)) << n;
    EXPECT_EQ(pem2der(openssl_write("X509 CRL", der)), der) << n;
  }
  EXPECT_EQ(der2pem(Bytes(49), "", ""), std::string(64, 'A') + "\r\nAA==\r\n");
  EXPECT_EQ(der2pem(bytes_of("foob"), "", "F"), "Zm9vYg==\r\nF\r\n");
  EXPECT_EQ(der2pem({}, "H", ""), "H\r\n");
}

// The loose scan and its refusals; every prefix of a PEM text fails until the footer.
TEST(Pem, ScansAsDocumentedAndReadsOnlyPemLen) {
  // clang-format off
  const std::tuple<std::string, const char*, int> cases[] = {
      {"", "", 0}, {"Zm9v\r\nYmFy\r\n", "666f6f626172", 0},
      {"-----B-----\r\nZm9v\r\nYmFy\r\n-----E-----\r\n", "666f6f626172", 0},
      {"junk -----B-----Zm9v-----E----- Zm9v", "666f6f", 0},
      // The body starts five characters after the first dash in the label.
      {"-----X-ABCDZm9vYg==-----E-----", "666f6f62", 0},
      {"-----BEGIN A-B-----\r\nZm9v\r\n-----END A-B-----", "", 0},
      {"-----B-----\r\nZg==Zm9v\r\n-----E-----", "66", 0},
      {"-----B-----\r\nZm9\r\n-----E-----", "", 0},
      {"-----", nullptr, 2}, {"-----BEGIN X\r\nZm9v\r\n", nullptr, 2},
      {"-----B-----\r\nZm9vYmFy\r\n", nullptr, 3}, {"-----B-", nullptr, 3}};
  // clang-format on
  for (const auto& [text, hex, err_no] : cases) {
    hylorn::Crypt_Put_Err(1, 1, "left by an earlier call");
    const char* msg = err_no == 2 ? "not find second ----- " : "not find three ----- ";
    EXPECT_EQ(pem2der(text), hex ? std::optional(from_hex(hex)) : std::nullopt) << text;
    EXPECT_EQ(read_errors(), (hex ? Entries{} : Entries{{155, err_no, msg}})) << text;
  }
  const Bytes body(100, 0x5a);
  const std::string full = der2pem(body);
  const std::size_t footer_dash = full.find(kEnd);
  for (std::size_t n = 1; n <= full.size(); ++n) {
    EXPECT_EQ(pem2der(full.substr(0, n)), n > footer_dash ? std::optional(body) : std::nullopt);
    // No entry once decoded; 2 while the header line is not closed, then 3.
    const int err_no = n > footer_dash ? 0 : n <= std::strlen(kBegin) - 5 ? 2 : 3;
    EXPECT_EQ(read_errors().size() == 1 ? read_errors()[0].err_no : 0, err_no) << n;
  }
}

TEST(Pem, RefusalsWithAnEmptyList) {
  char out[64];
  unsigned char der[16] = {};
  unsigned len = 99;
  const auto untouched = [&](unsigned result) {
    EXPECT_TRUE(result == 0 || (len == 99 && out[0] == '#'));
    return result;
  };
  out[0] = '#';
  hylorn::Crypt_Put_Err(1, 1, "left by an earlier call");
  EXPECT_EQ(untouched(PEM2DER_data_format("Zm9v", -1, der, &len)), 1u);
  EXPECT_TRUE(read_errors().empty());
  expect_each_malloc_failure(
      [&] { return untouched(DER2PEM_data_format(der, 3, out, &len, "H", "F")); }, {{}});
  len = 99;
  out[0] = '#';
  expect_each_malloc_failure([&] { return untouched(PEM2DER_data_format("Zm9v", 4, der, &len)); },
                             {{}});
}

}  // namespace
