// CRL rows: a CRL of n entries, each with a reason and an invalidity date, and a CRL
// number, on one 1024-bit key with SHA-1.
// - encode: ours through Init, n Updates and Final (which signs with a key file); OpenSSL
//   builds an X509_CRL (X509_REVOKED entries with their extensions), signs it and i2d's it;
// - decode: ours through Init, Update until the list ends, and Final; OpenSSL d2i's the
//   same DER and reads each entry's serial, date and both extensions.
// Each row also reports the time per entry ("per_entry"); n runs 1,000, 10,000, 100,000.
#include <openssl/x509.h>
#include <openssl/x509v3.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <vector>

#include "harness.h"
#include "hylorn.h"

namespace {

using Bytes = std::vector<unsigned char>;

void require(bool ok, const char* what) {
  if (!ok) throw std::runtime_error(what);
}

// One key, as our key file and as OpenSSL's EVP_PKEY.
struct CrlKey {
  std::string path;
  EVP_PKEY* key;
};

const CrlKey& crl_key() {
  static const CrlKey k = [] {
    char dir[] = "/tmp/hylorn_bench_crl_XXXXXX";
    require(mkdtemp(dir) != nullptr, "mkdtemp");
    CrlKey out{std::string(dir) + "/ca.key", nullptr};
    Bytes pub(HYLORN_PUBKEY_DER_SIZE), pri(HYLORN_PRIKEY_DER_SIZE);
    unsigned pubLen = 0, priLen = 0;
    require(Crypt_GenRSAKeyPair(out.path.c_str(), 0, pub.data(), &pubLen, pri.data(), &priLen) == 0,
            "Crypt_GenRSAKeyPair");
    const unsigned char* p = pri.data();
    out.key = d2i_PrivateKey(EVP_PKEY_RSA, nullptr, &p, long(priLen));
    require(out.key != nullptr, "d2i_PrivateKey");
    return out;
  }();
  return k;
}

constexpr unsigned kReason = 0x0400, kInvalidity = 0x0800, kNumber = 0x1000;
const char* const kIssuer[3] = {"CN", "Hylorn Bench CA", "CRL Issuer"};

unsigned reason_of(std::size_t i) {
  const unsigned code = unsigned(i % 10);
  return code == 7 ? 8 : code;  // 7 is not a reason
}

Bytes serial_of(std::size_t i) {
  return {0x01, (unsigned char)(i >> 16), (unsigned char)(i >> 8), (unsigned char)i};
}

Bytes our_encode(std::size_t n) {
  const CrlKey& k = crl_key();
  require(Crypt_Encode_Crl_Init(1, 3, (const unsigned char*)"\x05\x00", 2, kIssuer[0], kIssuer[1],
                                "", "", kIssuer[2], "", "", "", "", "", "", "", "", "", "", "",
                                "20250301120000", "20250401120000") == 0,
          "Init");
  for (std::size_t i = 0; i < n; ++i) {
    const Bytes serial = serial_of(i);
    require(Crypt_Encode_Crl_Update(serial.data(), 4, "20250215083000", kReason | kInvalidity, 0,
                                    reason_of(i), "20250101000000") == 0,
            "Update");
  }
  Bytes out(4096 + 96 * n);
  unsigned outLen = 0;
  const unsigned char number[] = {0x01, 0x00};
  require(Crypt_Encode_Crl_Final(kNumber, 0, "", "", "", "", "", "", "", "", "", "", "", "", "", "",
                                 "", "", nullptr, 0, number, 2, k.path.c_str(), "", out.data(),
                                 &outLen) == 0,
          "Final");
  out.resize(outLen);
  return out;
}

Bytes openssl_encode(std::size_t n) {
  X509_CRL* crl = X509_CRL_new();
  X509_CRL_set_version(crl, 1);
  X509_NAME* name = X509_NAME_new();
  const char* fields[3] = {"C", "O", "CN"};
  for (int i = 0; i < 3; ++i) {
    X509_NAME_add_entry_by_txt(name, fields[i], V_ASN1_PRINTABLESTRING,
                               (const unsigned char*)kIssuer[i], -1, -1, 0);
  }
  X509_CRL_set_issuer_name(crl, name);
  X509_NAME_free(name);
  ASN1_TIME* t = ASN1_TIME_new();
  ASN1_TIME_set_string(t, "250301120000Z");
  X509_CRL_set1_lastUpdate(crl, t);
  ASN1_TIME_set_string(t, "250401120000Z");
  X509_CRL_set1_nextUpdate(crl, t);
  ASN1_TIME_set_string(t, "250215083000Z");
  ASN1_GENERALIZEDTIME* when = ASN1_GENERALIZEDTIME_new();
  ASN1_GENERALIZEDTIME_set_string(when, "20250101000000Z");
  ASN1_ENUMERATED* code = ASN1_ENUMERATED_new();
  for (std::size_t i = 0; i < n; ++i) {
    X509_REVOKED* r = X509_REVOKED_new();
    const Bytes s = serial_of(i);
    ASN1_INTEGER* serial = ASN1_INTEGER_new();
    ASN1_STRING_set(serial, s.data(), int(s.size()));
    X509_REVOKED_set_serialNumber(r, serial);
    ASN1_INTEGER_free(serial);
    X509_REVOKED_set_revocationDate(r, t);
    ASN1_ENUMERATED_set(code, long(reason_of(i)));
    X509_REVOKED_add1_ext_i2d(r, NID_crl_reason, code, 0, 0);
    X509_REVOKED_add1_ext_i2d(r, NID_invalidity_date, when, 0, 0);
    X509_CRL_add0_revoked(crl, r);
  }
  ASN1_ENUMERATED_free(code);
  ASN1_GENERALIZEDTIME_free(when);
  ASN1_TIME_free(t);
  ASN1_INTEGER* number = ASN1_INTEGER_new();
  ASN1_INTEGER_set(number, 256);
  X509_CRL_add1_ext_i2d(crl, NID_crl_number, number, 0, 0);
  ASN1_INTEGER_free(number);
  require(X509_CRL_sign(crl, crl_key().key, EVP_sha1()) > 0, "X509_CRL_sign");
  unsigned char* der = nullptr;
  const int len = i2d_X509_CRL(crl, &der);
  require(len > 0, "i2d_X509_CRL");
  Bytes out(der, der + len);
  OPENSSL_free(der);
  X509_CRL_free(crl);
  return out;
}

void our_decode(const Bytes& der, std::size_t n) {
  void* h = nullptr;
  char s[16][HYLORN_NAME_SIZE], t1[HYLORN_TIME_SIZE], t2[HYLORN_TIME_SIZE];
  unsigned char params[HYLORN_PARAMS_SIZE], serial[HYLORN_SERIAL_SIZE];
  unsigned version, alg, paramsLen, serialLen, ext, crit, code;
  require(Crypt_Decode_Crl_Init(&h, der.data(), unsigned(der.size()), &version, &alg, params,
                                &paramsLen, s[0], s[1], s[2], s[3], s[4], s[5], s[6], s[7], s[8],
                                s[9], s[10], s[11], s[12], s[13], s[14], s[15], t1, t2) == 0,
          "Decode Init");
  char revoked[HYLORN_TIME_SIZE], invalidity[HYLORN_TIME_SIZE];
  std::size_t entries = 0;
  while (Crypt_Decode_Crl_Update(h, serial, &serialLen, revoked, &ext, &crit, &code, invalidity) ==
         0) {
    benchmark::DoNotOptimize(code);
    ++entries;
  }
  require(entries == n, "entries");
  unsigned akiLen = 0, numberLen = 0;
  unsigned char number[128];
  Crypt_Decode_Crl_Final(h, &ext, &crit, s[0], s[1], s[2], s[3], s[4], s[5], s[6], s[7], s[8], s[9],
                         s[10], s[11], s[12], s[13], s[14], s[15], serial, &akiLen, number,
                         &numberLen);
  require(ext == kNumber, "Decode Final");
}

void openssl_decode(const Bytes& der, std::size_t n) {
  const unsigned char* p = der.data();
  X509_CRL* crl = d2i_X509_CRL(nullptr, &p, long(der.size()));
  require(crl != nullptr, "d2i_X509_CRL");
  const STACK_OF(X509_REVOKED)* revoked = X509_CRL_get_REVOKED(crl);
  require(std::size_t(sk_X509_REVOKED_num(revoked)) == n, "entries");
  for (int i = 0; i < sk_X509_REVOKED_num(revoked); ++i) {
    X509_REVOKED* r = sk_X509_REVOKED_value(revoked, i);
    uint64_t serial = 0;
    ASN1_INTEGER_get_uint64(&serial, X509_REVOKED_get0_serialNumber(r));
    benchmark::DoNotOptimize(serial);
    benchmark::DoNotOptimize(ASN1_STRING_get0_data(X509_REVOKED_get0_revocationDate(r)));
    auto* code = (ASN1_ENUMERATED*)X509_REVOKED_get_ext_d2i(r, NID_crl_reason, nullptr, nullptr);
    require(code != nullptr, "reason");
    benchmark::DoNotOptimize(ASN1_ENUMERATED_get(code));
    ASN1_ENUMERATED_free(code);
    auto* when =
        (ASN1_GENERALIZEDTIME*)X509_REVOKED_get_ext_d2i(r, NID_invalidity_date, nullptr, nullptr);
    require(when != nullptr, "invalidity date");
    benchmark::DoNotOptimize(ASN1_STRING_get0_data(when));
    ASN1_GENERALIZEDTIME_free(when);
  }
  auto* number = (ASN1_INTEGER*)X509_CRL_get_ext_d2i(crl, NID_crl_number, nullptr, nullptr);
  require(number != nullptr, "CRL number");
  ASN1_INTEGER_free(number);
  X509_CRL_free(crl);
}

// Time per entry next to the time per CRL.
void count_entries(benchmark::State& state, std::size_t n) {
  state.counters["per_entry"] = benchmark::Counter(
      double(n), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

hylorn_bench::BenchFn encode_row(Bytes (*encode)(std::size_t), std::size_t n) {
  return [encode, n](benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(encode(n));
    count_entries(state, n);
  };
}

hylorn_bench::BenchFn decode_row(void (*decode)(const Bytes&, std::size_t), std::size_t n) {
  return [decode, n](benchmark::State& state) {
    const Bytes der = our_encode(n);
    for (auto _ : state) decode(der, n);
    count_entries(state, n);
  };
}

const bool registered = [] {
  for (std::size_t n : {1000, 10000, 100000}) {
    char encode[32], decode[32];
    std::snprintf(encode, sizeof encode, "crl/encode/%zu", n);
    std::snprintf(decode, sizeof decode, "crl/decode/%zu", n);
    hylorn_bench::register_pair(encode, encode_row(our_encode, n), "openssl",
                                encode_row(openssl_encode, n));
    hylorn_bench::register_pair(decode, decode_row(our_decode, n), "openssl",
                                decode_row(openssl_decode, n));
  }
  return true;
}();

}  // namespace
