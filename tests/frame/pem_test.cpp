// PEM armour: base64 lines of 64 between the caller's header and footer, against
// OpenSSL's writer and reader, and the loose scan of the reader.
#include <gtest/gtest.h>
#include <openssl/bio.h>
#include <openssl/pem.h>

#include <cstring>
#include <random>
#include <string>

#include "frame/error.h"
#include "hylorn.h"
#include "support/error_list.h"
#include "support/fail_malloc.h"
#include "support/hex.h"
#include "support/random_bytes.h"

namespace {

using hylorn_test::Bytes;
using hylorn_test::bytes_of;
using hylorn_test::ErrEntry;
using hylorn_test::read_errors;
using Entries = std::vector<ErrEntry>;

const char kBegin[] = "-----BEGIN CERTIFICATE-----";
const char kEnd[] = "-----END CERTIFICATE-----";

// The room the public header asks the caller to provide.
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

struct Decoded {
  unsigned result;
  Bytes der;
};

// PEM to DER from an unterminated copy of exactly pemLen bytes into the documented
// 3 * pemLen / 4 bytes, so that reading or writing past either shows under ASan.
Decoded pem2der(const std::string& text) {
  std::vector<char> in(text.begin(), text.end());
  Bytes der(3 * text.size() / 4);
  unsigned len = 0;
  Decoded d{PEM2DER_data_format(in.data(), int(in.size()), der.data(), &len), {}};
  if (d.result == 0) {
    EXPECT_LE(len, der.size());
    d.der.assign(der.begin(), der.begin() + len);
  }
  return d;
}

std::string openssl_write(const char* name, const Bytes& der) {
  BIO* bio = BIO_new(BIO_s_mem());
  PEM_write_bio(bio, name, "", der.data(), long(der.size()));
  char* p = nullptr;
  const long n = BIO_get_mem_data(bio, &p);
  std::string text(p, std::size_t(n));
  BIO_free(bio);
  // The same text, but with the CR LF line ends we write.
  std::string crlf;
  for (char c : text) crlf += c == '\n' ? std::string("\r\n") : std::string(1, c);
  return crlf;
}

// The body OpenSSL reads from a PEM text, or nothing when it refuses the text.
Bytes openssl_read(const std::string& text) {
  BIO* bio = BIO_new_mem_buf(text.data(), int(text.size()));
  char *name = nullptr, *header = nullptr;
  unsigned char* data = nullptr;
  long len = 0;
  Bytes der;
  if (PEM_read_bio(bio, &name, &header, &data, &len) == 1) der.assign(data, data + len);
  OPENSSL_free(name);
  OPENSSL_free(header);
  OPENSSL_free(data);
  BIO_free(bio);
  return der;
}

// Guards the layout (64-character lines, CR LF, no empty last line), the documented room
// being exact, base64 of every length, and the list emptied on entry: we write OpenSSL's
// text, read OpenSSL's text (whatever its label), and OpenSSL reads ours.
TEST(Pem, MatchesOpenSslBothWaysAtEveryLength) {
  std::mt19937 rng(7468);
  for (std::size_t n = 0; n <= 200; n += n < 100 ? 1 : 7) {
    const Bytes der = hylorn_test::random_bytes(rng, n);
    hylorn::Crypt_Put_Err(1, 1, "left by an earlier call");
    const std::string ours = der2pem(der);
    EXPECT_TRUE(read_errors().empty());
    EXPECT_EQ(ours, openssl_write("CERTIFICATE", der)) << n;
    EXPECT_EQ(ours.size() + 1, documented_room(n, kBegin, kEnd)) << n;
    const Decoded back = pem2der(openssl_write("X509 CRL", der));
    EXPECT_EQ(back.result, 0u) << n;
    EXPECT_EQ(back.der, der) << n;
    if (n > 0) {  // OpenSSL refuses an empty body
      EXPECT_EQ(openssl_read(ours), der) << n;
    }
  }
}

// Guards leaving out the header or footer line when its text is empty.
TEST(DerToPem, EmptyHeaderOrFooterLeavesItsLineOut) {
  EXPECT_EQ(der2pem(Bytes(49), "", ""), std::string(64, 'A') + "\r\nAA==\r\n");
  EXPECT_EQ(der2pem(bytes_of("foob"), "", "F"), "Zm9vYg==\r\nF\r\n");
  EXPECT_EQ(der2pem({}, "H", ""), "H\r\n");
  EXPECT_EQ(der2pem({}, "", ""), "");
}

// Guards the loose scan: bare base64, text around the armour, labels with dashes, and
// the two refusals (hex nullptr: err_no 2 no closing dash, 3 no footer).
TEST(PemToDer, ScansAsDocumented) {
  const std::tuple<std::string, const char*, int> cases[] = {
      {"", "", 0},
      {"Zm9v\r\nYmFy\r\n", "666f6f626172", 0},
      {"-----B-----\r\nZm9v\r\nYmFy\r\n-----E-----\r\n", "666f6f626172", 0},
      {"junk -----B-----Zm9v-----E----- Zm9v", "666f6f", 0},
      // The body starts five characters after the first dash in the label.
      {"-----X-ABCDZm9vYg==-----E-----", "666f6f62", 0},
      {"-----BEGIN A-B-----\r\nZm9v\r\n-----END A-B-----", "", 0},
      {"-----B-----\r\nZg==Zm9v\r\n-----E-----", "66", 0},
      {"-----B-----\r\nZm9\r\n-----E-----", "", 0},
      {"-----", nullptr, 2},
      {"-----BEGIN X\r\nZm9v\r\n", nullptr, 2},
      {"-----B-----\r\nZm9vYmFy\r\n", nullptr, 3},
      {"-----B-", nullptr, 3}};
  for (const auto& [text, hex, err_no] : cases) {
    hylorn::Crypt_Put_Err(1, 1, "left by an earlier call");
    const Decoded d = pem2der(text);
    if (hex == nullptr) {
      EXPECT_EQ(d.result, 1u) << text;
      const char* msg = err_no == 2 ? "not find second ----- " : "not find three ----- ";
      EXPECT_EQ(read_errors(), (Entries{{155, err_no, msg}})) << text;
      continue;
    }
    EXPECT_EQ(d.result, 0u) << text;
    EXPECT_EQ(d.der, hylorn_test::from_hex(hex)) << text;
    EXPECT_TRUE(read_errors().empty()) << text;
  }
}

// Guards reading only pemLen bytes: every prefix of a real PEM text fails cleanly until
// it reaches the footer's first dash, and decodes in full from there on.
TEST(PemToDer, EveryPrefixStopsAtPemLen) {
  const Bytes body(100, 0x5a);
  const std::string full = der2pem(body);
  const std::size_t footer_dash = full.find(kEnd);
  for (std::size_t n = 1; n <= full.size(); ++n) {
    const Decoded d = pem2der(full.substr(0, n));
    if (n > footer_dash) {
      EXPECT_EQ(d.result, 0u) << n;
      EXPECT_EQ(d.der, body) << n;
      continue;
    }
    EXPECT_EQ(d.result, 1u) << n;
    const int err_no = n <= std::strlen(kBegin) - 5 ? 2 : 3;  // header line not yet closed
    ASSERT_EQ(read_errors().size(), 1u) << n;
    EXPECT_EQ(read_errors()[0].err_no, err_no) << n;
  }
}

// Guards the refusals reported by the result alone, with the list emptied and the
// outputs untouched: a negative length, and a failed scratch allocation either way.
TEST(Pem, RefusalsWithAnEmptyList) {
  char out[64];
  unsigned char der[16] = {};
  unsigned len = 99;
  std::memset(out, '#', sizeof out);
  for (int which = 0; which < 3; ++which) {
    hylorn::Crypt_Put_Err(1, 1, "left by an earlier call");
    unsigned result;
    {
      hylorn_test::FailNthMalloc fail(which == 0 ? 0 : 1);
      result = which == 0   ? PEM2DER_data_format("Zm9v", -1, der, &len)
               : which == 1 ? DER2PEM_data_format(der, 3, out, &len, "H", "F")
                            : PEM2DER_data_format("Zm9v", 4, der, &len);
      EXPECT_EQ(fail.fired(), which != 0);
    }
    EXPECT_EQ(result, 1u) << which;
    EXPECT_TRUE(read_errors().empty()) << which;
    EXPECT_EQ(len, 99u);
    EXPECT_EQ(out[0], '#');
  }
}

}  // namespace
