#include <gtest/gtest.h>
#include <openssl/bn.h>
#include <openssl/pem.h>

#include <cstdlib>
#include <cstring>
#include <optional>
#include <random>

#include "frame/base64.h"
#include "frame/buffer.h"
#include "frame/error.h"
#include "hylorn.h"
#include "support/alloc_failure.h"
#include "support/openssl_bytes.h"
#include "support/random_bytes.h"

namespace {

using namespace hylorn;
using namespace hylorn_test;

// Where decoding stops and what it skips; hex nullptr: the one "not 4" entry.
TEST(Base64, DecodeStopsAndSkipsAsPromised) {
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

std::size_t promised_room(std::size_t derLen, const char* header, const char* footer) {
  return std::strlen(header) + std::strlen(footer) + 4 * ((derLen + 2) / 3) +
         2 * ((derLen + 47) / 48) + 5;
}

// DER to PEM in a buffer of exactly the room the interface promises to need.
std::string der2pem(const Bytes& der, const char* header = kBegin, const char* footer = kEnd) {
  std::vector<char> out(promised_room(der.size(), header, footer), '#');
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
    EXPECT_EQ(ours.size() + 1, promised_room(n, kBegin, kEnd)) << n;
    EXPECT_EQ(pem2der(openssl_write("X509 CRL", der)), der) << n;
  }
  EXPECT_EQ(der2pem(Bytes(49), "", ""), std::string(64, 'A') + "\r\nAA==\r\n");
  EXPECT_EQ(der2pem(bytes_of("foob"), "", "F"), "Zm9vYg==\r\nF\r\n");
  EXPECT_EQ(der2pem({}, "H", ""), "H\r\n");
}

// The loose scan and its refusals; every prefix of a PEM text fails until the footer.
TEST(Pem, ScansLooselyAndReadsOnlyPemLen) {
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
  char out[64] = {'#'};
  unsigned char der[16] = {};
  unsigned len = 99;
  // A refusal leaves both alone; the markers are set again for the next call.
  const auto untouched = [&](unsigned result) {
    EXPECT_TRUE(result == 0 || (len == 99 && out[0] == '#'));
    len = 99, out[0] = '#';
    return result;
  };
  hylorn::Crypt_Put_Err(1, 1, "left by an earlier call");
  EXPECT_EQ(untouched(PEM2DER_data_format("Zm9v", -1, der, &len)), 1u);
  EXPECT_TRUE(read_errors().empty());
  expect_each_malloc_failure(
      [&] { return untouched(DER2PEM_data_format(der, 3, out, &len, "H", "F")); }, {{}});
  expect_each_malloc_failure([&] { return untouched(PEM2DER_data_format("Zm9v", 4, der, &len)); },
                             {{}});
}

TEST(ErrorList, FormatOrderCapAndSlots) {
  Crypt_Clear_Err();
  char out[8];
  std::memset(out, 'x', sizeof out);
  EXPECT_EQ(Crypt_Get_Err(out), 0u);
  EXPECT_EQ(std::string(out, sizeof out), std::string(sizeof out, 'x'));
  Crypt_Put_Err(108, 9, "data length");
  Crypt_Put_Err(203, 1, "ASN1_Decode_Sequence");
  const std::string expected =
      "func_no = 108 err_no = 9 err_msg = data length\n"
      "func_no = 203 err_no = 1 err_msg = ASN1_Decode_Sequence\n";
  EXPECT_EQ(error_text(), expected);
  EXPECT_EQ(error_text(), expected);
  const std::string long_msg(300, 'a');
  Crypt_Clear_Err();
  for (int i = 1; i <= 18; ++i) Crypt_Put_Err(100 + i, i, i == 16 ? long_msg.c_str() : "m");
  const auto entries = read_errors();
  ASSERT_EQ(entries.size(), 16u);
  EXPECT_EQ(entries.front(), (ErrEntry{101, 1, "m"}));
  EXPECT_EQ(entries.back().func_no, 116);
  EXPECT_EQ(error_text().size() - error_text().rfind('\n') - 1, kErrorSlotSize - 1u);
  Crypt_Clear_Err();
  for (int i = 1; i <= 18; ++i) Crypt_Put_Err(100 + i, i, long_msg.c_str());
  EXPECT_EQ(error_text().size(), 16 * (kErrorSlotSize - 1u));
  EXPECT_LT(error_text().size(), std::size_t{HYLORN_ERR_TEXT_SIZE});
}

TEST(Frame, VersionAndEnvironmentInAnyOrder) {
  unsigned major = 0, minor = 0;
  EXPECT_EQ(Crypt_Get_Soft_Version(&major, &minor), 0u);
  EXPECT_EQ(major * 100 + minor, 110u);
  for (int i = 0; i < 2; ++i) EXPECT_EQ(Crypt_ClearEnvironment() + Crypt_InitEnvironment(), 0u);
}

TEST(Buffers, CopiesOwnTheirBytes) {
  const Bytes src = from_hex("ff 81");
  DATA_BUFFER plain{7, nullptr}, back{0, nullptr}, empty{7, nullptr};
  BIT_DATA_BUFFER bits{9, 9, nullptr}, empty_bits{3, 3, nullptr};
  ASSERT_EQ(copy_DATA_BUFFER(&plain, 2, src.data()) + copy_NoneBIT_To_BIT(&bits, plain), 0u);
  EXPECT_NE(plain.data, src.data());
  EXPECT_EQ(bits.unusedBits, 0u);
  bits.unusedBits = 5;
  ASSERT_EQ(copy_BIT_To_NoneBIT(&back, bits), 0u);
  EXPECT_EQ(Bytes(bits.data, bits.data + bits.length), src);
  EXPECT_EQ(Bytes(back.data, back.data + back.length), src);
  for (int twice = 0; twice < 2; ++twice) {
    EXPECT_EQ(free_DATA_BUFFER(&plain) + free_DATA_BUFFER(&back) + free_BIT_DATA_BUFFER(&bits), 0u);
    EXPECT_EQ(plain.data, nullptr);
    EXPECT_EQ(bits.length + bits.unusedBits, 0u);
  }
  ASSERT_EQ(copy_DATA_BUFFER(&empty, 0, nullptr), 0u);
  ASSERT_EQ(copy_NoneBIT_To_BIT(&empty_bits, DATA_BUFFER{0, nullptr}), 0u);
  EXPECT_EQ(empty.length + empty_bits.length + empty_bits.unusedBits, 0u);
  empty.length = 9;
  ASSERT_EQ(copy_BIT_To_NoneBIT(&empty, BIT_DATA_BUFFER{0, 5, nullptr}), 0u);
  EXPECT_EQ(empty.length, 0u);
}

TEST(Buffers, FailedCopyReportsMallocUnderItsNumber) {
  u8 src[3] = {1, 2, 3};
  const auto check = [](int func_no, auto record, auto copy) {
    expect_each_malloc_failure(
        [&] {
          auto r = record;
          const u32 result = copy(&r);
          EXPECT_TRUE(result == 0 || r.length == 42u);
          EXPECT_EQ(r.data == nullptr, result != 0);
          std::free(r.data);
          return result;
        },
        {{kEarlierEntry, {func_no, 1, "malloc"}}});
  };
  const BIT_DATA_BUFFER bits{3, 1, src};
  check(132, DATA_BUFFER{42, nullptr}, [&](DATA_BUFFER* d) { return copy_DATA_BUFFER(d, 3, src); });
  check(136, DATA_BUFFER{42, nullptr},
        [&](DATA_BUFFER* d) { return copy_BIT_To_NoneBIT(d, bits); });
  check(137, BIT_DATA_BUFFER{42, 0, nullptr}, [&](BIT_DATA_BUFFER* b) {
    return copy_NoneBIT_To_BIT(b, DATA_BUFFER{3, src});
  });
}

// sum(v_i * 10^i) with v_i = (c - '0') mod 256, as minimal big-endian bytes.
Bytes reference_value(const std::string& text) {
  BIGNUM* bn = BN_new();
  for (unsigned char c : text) BN_mul_word(bn, 10), BN_add_word(bn, u8(c - '0'));
  Bytes out = bn_bytes(bn);
  BN_free(bn);
  return out.empty() ? Bytes{0} : out;
}

// Char2Int into exactly the promised 54 bytes, Int2Char into exactly 310 characters.
std::optional<Bytes> char2int(const std::string& text) {
  Bytes buf(54);
  unsigned len = 0;
  if (Crypt_Char2Int(text.c_str(), buf.data(), &len) != 0) return std::nullopt;
  buf.resize(len);  // a length past the room shows as a wrong value
  return buf;
}
std::optional<std::string> int2char(const Bytes& in, int inLen) {
  std::vector<char> buf(310, '#');
  if (Crypt_Int2Char(in.data(), inLen, buf.data()) != 0) return std::nullopt;
  return std::string(buf.data());
}

// Every length to the limits both ways against OpenSSL; one more is refused.
TEST(Charcode, BothWaysMatchOpenSslUpToTheLimits) {
  std::mt19937 rng(1024);
  std::vector<std::string> texts = {"", "0", "000255", std::string(128, '/'), ":", "9\x80"};
  std::vector<Bytes> numbers = {{}, from_hex("00000000"), Bytes(128, 0xff)};
  for (std::size_t n = 1; n <= 128; ++n) {
    std::string digits(n, '0'), any(n, ' ');
    for (auto& c : digits) c = char('0' + rng() % 10);
    for (auto& c : any) c = char(1 + rng() % 255);
    texts.insert(texts.end(), {digits, any});
    numbers.push_back(random_bytes(rng, n));
    numbers.push_back(numbers.back());
    numbers.back()[0] = 0;
  }
  for (const auto& text : texts) EXPECT_EQ(char2int(text), reference_value(text)) << text;
  for (const auto& in : numbers) EXPECT_EQ(int2char(in, int(in.size())), bn_decimal(in));
  clear_errors();
  Crypt_Put_Err(1, 1, "kept");
  for (int length : {129, -1, INT32_MIN}) EXPECT_EQ(int2char(Bytes(129, 1), length), std::nullopt);
  EXPECT_EQ(char2int(std::string(129, '0')), std::nullopt);
  EXPECT_EQ(read_errors().size(), 1u);
}

}  // namespace
