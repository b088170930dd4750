// PKCS #10 rows on one 1024-bit key made by OpenSSL, the same subject on both sides
// (C, O, OU, CN as PrintableString, emailAddress as IA5String):
// - encode: ours through Crypt_Encode_Pkcs10, which reads the signing key from its key
//   file on every call; OpenSSL builds an X509_REQ, signs it with MD5 on the loaded key
//   and writes it with i2d_X509_REQ;
// - decode: ours through Crypt_Decode_Pkcs10 into the sixteen slots and the key octets;
//   OpenSSL runs d2i_X509_REQ and copies out each subject value and the key octets.
#include <openssl/evp.h>
#include <openssl/x509.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstring>
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

// The subject, in the slot order of the exported functions (empty slots are absent).
const char* const kSubject[16] = {"DE", "Hylorn", "Benchmarks", "", "Request Bench",    "",
                                  "",   "",       "",           "", "bench@example.org"};
const char* const kFields[16] = {"C", "O", "OU", "ST", "CN", "L", "", "", "", "", "emailAddress"};

// The shared key as OpenSSL holds it, and the key file our encoder signs with (removed
// when the process ends).
struct SharedKey {
  EVP_PKEY* key = nullptr;
  Bytes pub;
  std::string dir;
  std::string path;
  ~SharedKey() {
    unlink(path.c_str());
    rmdir(dir.c_str());
  }
};

Bytes der_of(EVP_PKEY* key, int (*encode)(const EVP_PKEY*, unsigned char**)) {
  Bytes out(static_cast<std::size_t>(encode(key, nullptr)));
  unsigned char* p = out.data();
  require(encode(key, &p) > 0, "i2d");
  return out;
}

const SharedKey& shared_key() {
  static SharedKey k = [] {
    SharedKey s;
    s.key = EVP_PKEY_Q_keygen(nullptr, nullptr, "RSA", std::size_t{1024});
    require(s.key != nullptr, "keygen");
    s.pub = der_of(s.key, i2d_PublicKey);
    char dir[] = "/tmp/hylorn-bench-XXXXXX";
    require(mkdtemp(dir) != nullptr, "mkdtemp");
    s.dir = dir;
    s.path = s.dir + "/request.key";
    const Bytes pri = der_of(s.key, i2d_PrivateKey);
    FILE* f = std::fopen(s.path.c_str(), "wb");
    require(f != nullptr && std::fwrite(pri.data(), 1, pri.size(), f) == pri.size(), "key file");
    std::fclose(f);
    return s;
  }();
  return k;
}

unsigned our_encode(unsigned char* out, unsigned* outLen) {
  const SharedKey& k = shared_key();
  const char* const* s = kSubject;
  const auto t = [s](int i) { return s[i] != nullptr ? s[i] : ""; };
  return Crypt_Encode_Pkcs10(0, t(0), t(1), t(2), t(3), t(4), t(5), t(6), t(7), t(8), t(9), t(10),
                             t(11), t(12), t(13), t(14), t(15), k.pub.data(),
                             unsigned(k.pub.size()), k.path.c_str(), "", out, outLen);
}

void bench_our_encode(benchmark::State& state) {
  unsigned char out[HYLORN_CERT_DER_SIZE];
  unsigned outLen = 0;
  for (auto _ : state) {
    require(our_encode(out, &outLen) == 0, "Crypt_Encode_Pkcs10");
    benchmark::DoNotOptimize(out);
  }
}

void bench_openssl_encode(benchmark::State& state) {
  const SharedKey& k = shared_key();
  unsigned char out[HYLORN_CERT_DER_SIZE];
  for (auto _ : state) {
    X509_REQ* req = X509_REQ_new();
    require(X509_REQ_set_version(req, 0) == 1, "X509_REQ_set_version");
    X509_NAME* name = X509_REQ_get_subject_name(req);
    for (int i = 0; i < 16; ++i) {
      if (kSubject[i] == nullptr || kSubject[i][0] == '\0') continue;
      require(X509_NAME_add_entry_by_txt(
                  name, kFields[i], i == 10 ? V_ASN1_IA5STRING : V_ASN1_PRINTABLESTRING,
                  reinterpret_cast<const unsigned char*>(kSubject[i]), -1, -1, 0) == 1,
              "X509_NAME_add_entry_by_txt");
    }
    require(X509_REQ_set_pubkey(req, k.key) == 1, "X509_REQ_set_pubkey");
    require(X509_REQ_sign(req, k.key, EVP_md5()) > 0, "X509_REQ_sign");
    unsigned char* p = out;
    require(i2d_X509_REQ(req, &p) > 0, "i2d_X509_REQ");
    X509_REQ_free(req);
    benchmark::DoNotOptimize(out);
  }
}

Bytes request() {
  Bytes out(HYLORN_CERT_DER_SIZE);
  unsigned outLen = 0;
  require(our_encode(out.data(), &outLen) == 0, "Crypt_Encode_Pkcs10");
  out.resize(outLen);
  return out;
}

void bench_our_decode(benchmark::State& state) {
  const Bytes der = request();
  char s[16][HYLORN_NAME_SIZE];
  unsigned char key[HYLORN_PUBKEY_SIZE];
  unsigned version = 0, keyLen = 0;
  for (auto _ : state) {
    require(Crypt_Decode_Pkcs10(der.data(), unsigned(der.size()), &version, s[0], s[1], s[2], s[3],
                                s[4], s[5], s[6], s[7], s[8], s[9], s[10], s[11], s[12], s[13],
                                s[14], s[15], key, &keyLen) == 0,
            "Crypt_Decode_Pkcs10");
    benchmark::DoNotOptimize(s);
    benchmark::DoNotOptimize(key);
  }
}

void bench_openssl_decode(benchmark::State& state) {
  const Bytes der = request();
  char s[16][HYLORN_NAME_SIZE];
  unsigned char key[HYLORN_PUBKEY_SIZE];
  for (auto _ : state) {
    const unsigned char* p = der.data();
    X509_REQ* req = d2i_X509_REQ(nullptr, &p, long(der.size()));
    require(req != nullptr, "d2i_X509_REQ");
    const X509_NAME* name = X509_REQ_get_subject_name(req);
    const int n = X509_NAME_entry_count(name);
    for (int i = 0; i < n && i < 16; ++i) {
      const ASN1_STRING* v = X509_NAME_ENTRY_get_data(X509_NAME_get_entry(name, i));
      const int len = ASN1_STRING_length(v);
      require(len < HYLORN_NAME_SIZE, "name value");
      std::memcpy(s[i], ASN1_STRING_get0_data(v), std::size_t(len));
      s[i][len] = '\0';
    }
    const unsigned char* k = nullptr;
    int keyLen = 0;
    require(X509_PUBKEY_get0_param(nullptr, &k, &keyLen, nullptr, X509_REQ_get_X509_PUBKEY(req)),
            "X509_PUBKEY_get0_param");
    std::memcpy(key, k, std::size_t(keyLen));
    X509_REQ_free(req);
    benchmark::DoNotOptimize(s);
    benchmark::DoNotOptimize(key);
  }
}

const bool registered = [] {
  hylorn_bench::register_pair("pkcs10_encode/md5/rsa1024", bench_our_encode, "openssl",
                              bench_openssl_encode);
  hylorn_bench::register_pair("pkcs10_decode/rsa1024", bench_our_decode, "openssl",
                              bench_openssl_decode);
  return true;
}();

}  // namespace
