#include <gtest/gtest.h>
#include <openssl/bio.h>
#include <openssl/crypto.h>
#include <openssl/pem.h>

#include <cstring>
#include <random>
#include <string>

#include "frame/error.h"
#include "hylorn.h"
#include "support/error_list.h"
#include "support/fail_malloc.h"
#include "support/hex.h"

using hylorn_test::Bytes;
using hylorn_test::bytes_of;
using hylorn_test::ErrEntry;
using hylorn_test::read_errors;

namespace {

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
  EXPECT_EQ(DER2PEM_data_format(der.data(), static_cast<unsigned>(der.size()), out.data(), &len,
                                header, footer),
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
  Decoded d{PEM2DER_data_format(in.data(), static_cast<int>(in.size()), der.data(), &len), {}};
  if (d.result == 0) {
    EXPECT_LE(len, der.size());
    d.der.assign(der.begin(), der.begin() + len);
  }
  return d;
}

Bytes random_bytes(std::mt19937& rng, std::size_t n) {
  Bytes b(n);
  for (auto& x : b) x = static_cast<unsigned char>(rng());
  return b;
}

std::string lf_to_crlf(const std::string& s) {
  std::string out;
  for (char c : s) out += c == '\n' ? std::string("\r\n") : std::string(1, c);
  return out;
}

std::string openssl_write(const char* name, const Bytes& der) {
  BIO* bio = BIO_new(BIO_s_mem());
  // OpenSSL reports writing an empty body as 0 bytes written, not as a failure.
  const int written = PEM_write_bio(bio, name, "", der.data(), static_cast<long>(der.size()));
  EXPECT_TRUE(written > 0 || der.empty());
  char* p = nullptr;
  long n = BIO_get_mem_data(bio, &p);
  std::string text(p, static_cast<std::size_t>(n));
  BIO_free(bio);
  return text;
}

bool openssl_read(const std::string& text, std::string* name, Bytes* der) {
  BIO* bio = BIO_new_mem_buf(text.data(), static_cast<int>(text.size()));
  char *n = nullptr, *header = nullptr;
  unsigned char* data = nullptr;
  long len = 0;
  const bool ok = PEM_read_bio(bio, &n, &header, &data, &len) == 1;
  if (ok) {
    *name = n;
    der->assign(data, data + len);
  }
  OPENSSL_free(n);
  OPENSSL_free(header);
  OPENSSL_free(data);
  BIO_free(bio);
  return ok;
}

}  // namespace

TEST(DerToPem, LinesOf64WithoutAnEmptyLastLine) {
  const std::string b64_48(64, 'A'), b64_49 = b64_48 + "AA==";
  EXPECT_EQ(der2pem(Bytes(48)), std::string(kBegin) + "\r\n" + b64_48 + "\r\n" + kEnd + "\r\n");
  EXPECT_EQ(der2pem(Bytes(49)),
            std::string(kBegin) + "\r\n" + b64_48 + "\r\nAA==\r\n" + kEnd + "\r\n");
  EXPECT_EQ(der2pem(Bytes(49), "", ""), b64_48 + "\r\nAA==\r\n");
  EXPECT_EQ(der2pem(bytes_of("foob"), "", "F"), "Zm9vYg==\r\nF\r\n");
  EXPECT_EQ(der2pem({}, "H", ""), "H\r\n");
  EXPECT_EQ(der2pem({}, "", ""), "");
  EXPECT_EQ(der2pem({}).size(), std::strlen(kBegin) + std::strlen(kEnd) + 4);
}

// OpenSSL's writer differs only in its line ends; the documented room is exact when both
// header and footer are given.
TEST(DerToPem, MatchesOpenSslWriterAtEveryLength) {
  std::mt19937 rng(7468);
  for (std::size_t n = 0; n <= 200; ++n) {
    Bytes der = random_bytes(rng, n);
    hylorn_test::clear_errors();
    std::string ours = der2pem(der);
    EXPECT_EQ(ours, lf_to_crlf(openssl_write("CERTIFICATE", der))) << n;
    EXPECT_EQ(ours.size() + 1, documented_room(n, kBegin, kEnd)) << n;
    EXPECT_TRUE(read_errors().empty());
  }
}

TEST(PemToDer, ReadsOpenSslOutputAndOpenSslReadsOurs) {
  std::mt19937 rng(1421);
  for (std::size_t n : {0, 1, 2, 3, 47, 48, 49, 95, 96, 97, 500, 1217}) {
    Bytes der = random_bytes(rng, n);
    Decoded d = pem2der(openssl_write("X509 CRL", der));
    EXPECT_EQ(d.result, 0u) << n;
    EXPECT_EQ(d.der, der) << n;
    if (n == 0) continue;  // OpenSSL's reader refuses an empty body

    std::string name;
    Bytes back;
    ASSERT_TRUE(openssl_read(der2pem(der), &name, &back)) << n;
    EXPECT_EQ(name, "CERTIFICATE");
    EXPECT_EQ(back, der) << n;
  }
}

struct PemCase {
  const char* name;
  std::string text;
  const char* hex;  // expected DER, or nullptr on failure
  int err_no;       // 155's error number on failure
};

class PemToDerCases : public ::testing::TestWithParam<PemCase> {};

TEST_P(PemToDerCases, ScansAsDocumented) {
  hylorn::Crypt_Put_Err(1, 1, "left by an earlier call");
  const PemCase& c = GetParam();
  Decoded d = pem2der(c.text);
  if (c.hex) {
    EXPECT_EQ(d.result, 0u);
    EXPECT_EQ(d.der, hylorn_test::from_hex(c.hex));
    EXPECT_TRUE(read_errors().empty());
  } else {
    EXPECT_EQ(d.result, 1u);
    const char* msg = c.err_no == 2 ? "not find second ----- " : "not find three ----- ";
    EXPECT_EQ(read_errors(), (std::vector<ErrEntry>{{155, c.err_no, msg}}));
  }
}

INSTANTIATE_TEST_SUITE_P(
    Cases, PemToDerCases,
    ::testing::Values(
        PemCase{"Empty", "", "", 0}, PemCase{"BareBase64", "Zm9v\r\nYmFy\r\n", "666f6f626172", 0},
        PemCase{"Armoured", "-----B-----\r\nZm9v\r\nYmFy\r\n-----E-----\r\n", "666f6f626172", 0},
        PemCase{"TextBeforeAndAfterIgnored", "junk -----B-----Zm9v-----E----- Zm9v", "666f6f", 0},
        // The body starts five characters after the first dash in the label.
        PemCase{"DashInLabel", "-----X-ABCDZm9vYg==-----E-----", "666f6f62", 0},
        PemCase{"DashInLabelEatsBody", "-----BEGIN A-B-----\r\nZm9v\r\n-----END A-B-----", "", 0},
        PemCase{"PaddingInFirstGroup", "-----B-----\r\nZg==Zm9v\r\n-----E-----", "66", 0},
        PemCase{"FewerThanFour", "-----B-----\r\nZm9\r\n-----E-----", "", 0},
        PemCase{"OnlyOpeningDashes", "-----", nullptr, 2},
        PemCase{"NoClosingDash", "-----BEGIN X\r\nZm9v\r\n", nullptr, 2},
        PemCase{"NoFooter", "-----B-----\r\nZm9vYmFy\r\n", nullptr, 3},
        PemCase{"BodyStartsPastTheEnd", "-----B-", nullptr, 3}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(PemToDer, NeverReadsPastPemLen) {
  const std::string text = "Zm9vYmFy";
  unsigned char der[8];
  unsigned len = 0;
  ASSERT_EQ(PEM2DER_data_format(text.data(), 4, der, &len), 0u);
  EXPECT_EQ(Bytes(der, der + len), bytes_of("foo"));
  // The footer lies beyond pemLen: the armoured body has no end.
  const std::string pem = "-----B-----Zm9v-----E-----";
  EXPECT_EQ(PEM2DER_data_format(pem.data(), 15, der, &len), 1u);
  EXPECT_EQ(read_errors(), (std::vector<ErrEntry>{{155, 3, "not find three ----- "}}));
  // Every non-empty prefix of a real PEM text fails cleanly until it reaches the footer's
  // first dash, and decodes in full from there on.
  const Bytes body(100, 0x5a);
  const std::string full = der2pem(body);
  const std::size_t footer_dash = full.find(kEnd);
  for (std::size_t n = 1; n <= full.size(); ++n) {
    Decoded d = pem2der(full.substr(0, n));
    if (n > footer_dash) {
      EXPECT_EQ(d.result, 0u) << n;
      EXPECT_EQ(d.der, body) << n;
    } else {
      EXPECT_EQ(d.result, 1u) << n;
      const int err_no = n <= std::strlen(kBegin) - 5 ? 2 : 3;  // header line not yet closed
      ASSERT_EQ(read_errors().size(), 1u) << n;
      EXPECT_EQ(read_errors()[0].err_no, err_no) << n;
    }
  }
}

TEST(PemToDer, NegativeLengthIsRefusedWithAnEmptyList) {
  unsigned char der[4];
  unsigned len = 77;
  hylorn::Crypt_Put_Err(1, 1, "left by an earlier call");
  EXPECT_EQ(PEM2DER_data_format("Zm9v", -1, der, &len), 1u);
  EXPECT_TRUE(read_errors().empty());
  EXPECT_EQ(len, 77u);
}

TEST(PemAllocation, FailedScratchReturnsOneWithTheListEmptied) {
  char out[64];
  unsigned char der[16] = {};
  unsigned len = 99;
  std::memset(out, '#', sizeof out);
  for (int which = 0; which < 2; ++which) {
    hylorn::Crypt_Put_Err(1, 1, "left by an earlier call");
    unsigned result;
    {
      hylorn_test::FailNthMalloc fail(1);
      result = which == 0 ? DER2PEM_data_format(der, 3, out, &len, "H", "F")
                          : PEM2DER_data_format("Zm9v", 4, der, &len);
      EXPECT_TRUE(fail.fired());
    }
    EXPECT_EQ(result, 1u) << which;
    EXPECT_TRUE(read_errors().empty()) << which;
    EXPECT_EQ(len, 99u);
    EXPECT_EQ(out[0], '#');
  }
}
