// Certificate rows on one 1024-bit key made by OpenSSL, used by both sides, and one
// certificate (C, O, ST, CN, emailAddress issuer; seven-attribute subject; KeyUsage,
// BasicConstraints, CertificatePolicies and Netscape certificate type):
// - decode: ours is Crypt_Decode_Cert, every field out; OpenSSL's is d2i_X509, the
//   subject's commonName (X509_NAME_get_text_by_NID) and the key's DER (X509_get0_pubkey,
//   i2d_PublicKey);
// - encode and sign with SHA-1: ours is Crypt_Encode_Cert with the key in a key file (read
//   on every call); OpenSSL's builds the same certificate with the X509 API and its
//   extension structures, signs it with X509_sign and writes it with i2d_X509.
// Each row also counts the malloc calls per iteration ("mallocs").
#include <openssl/evp.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include "harness.h"
#include "hylorn.h"
#include "support/openssl_rsa.h"
#include "x509/cert_calls.h"

// Every malloc of the process passes here and is counted.
namespace {
std::atomic<long> malloc_calls{0};
}
extern "C" void* __libc_malloc(std::size_t n);
extern "C" void* malloc(std::size_t n) noexcept {
  malloc_calls.fetch_add(1, std::memory_order_relaxed);
  return __libc_malloc(n);
}

namespace {

using cert_test::Bytes;
using cert_test::CertInput;
using cert_test::CertOutput;

void require(bool ok, const char* what) {
  if (!ok) throw std::runtime_error(what);
}

// The shared key, and a key file holding it for our signer.
struct SharedKey {
  hylorn_test::EvpKey key;
  Bytes pub;
  std::string file;
};

const SharedKey& shared_key() {
  static const SharedKey* k = [] {
    auto* made = new SharedKey{hylorn_test::openssl_keygen(1024), {}, {}};
    made->pub = hylorn_test::public_der(made->key.get());
    char path[] = "/tmp/hylorn-bench-key-XXXXXX";
    const int fd = mkstemp(path);
    require(fd >= 0, "mkstemp");
    const Bytes pri = hylorn_test::private_der(made->key.get());
    require(write(fd, pri.data(), pri.size()) == ssize_t(pri.size()), "write key");
    close(fd);
    made->file = path;
    std::atexit([] { std::remove(shared_key().file.c_str()); });
    return made;
  }();
  return *k;
}

const char* const kIssuer[] = {"CN", "Hylorn Bench", "Beijing", "Bench CA", "ca@example.com"};
const char* const kSubject[] = {"CN",       "Leaf Org",         "Leaf Unit", "Shanghai",
                                "leaf.org", "leaf@example.org", "Pudong"};
const Bytes kPolicy = {0x2B, 0x06, 0x01, 0x04, 0x01, 0x86, 0x8D, 0x1F, 0x01};

CertInput our_input() {
  CertInput in;
  in.serial = {0x0A, 0x0B};
  in.issuer[0] = kIssuer[0], in.issuer[1] = kIssuer[1], in.issuer[3] = kIssuer[2];
  in.issuer[4] = kIssuer[3], in.issuer[10] = kIssuer[4];
  in.subject[0] = kSubject[0], in.subject[1] = kSubject[1], in.subject[2] = kSubject[2];
  in.subject[3] = kSubject[3], in.subject[4] = kSubject[4], in.subject[10] = kSubject[5];
  in.subject[5] = kSubject[6];
  in.notBefore = "20250101000000";
  in.notAfter = "20351231235959";
  in.pubKey = shared_key().pub;
  in.extFlags = 0x5A;  // KeyUsage, CertificatePolicies, BasicConstraints, Netscape type
  in.critFlags = 0x12;
  in.policies[0] = {kPolicy, "", {}};
  in.keyUsage = 0xA0;
  in.nsCertType = 0xA0;
  in.keyName = shared_key().file;
  return in;
}

const Bytes& certificate() {
  static const Bytes der = [] {
    Bytes d;
    require(cert_test::encode_cert(our_input(), &d) == 0, "Crypt_Encode_Cert");
    return d;
  }();
  return der;
}

void count_mallocs(benchmark::State& state, long before) {
  state.counters["mallocs"] = double(malloc_calls.load() - before) / double(state.iterations());
}

void our_decode(benchmark::State& state) {
  const Bytes& der = certificate();
  auto* out = new CertOutput;
  const long before = malloc_calls.load();
  for (auto _ : state) {
    require(cert_test::decode_cert_into(der, out) == 0, "Crypt_Decode_Cert");
    benchmark::DoNotOptimize(out);
  }
  count_mallocs(state, before);
  delete out;
}

void openssl_decode(benchmark::State& state) {
  const Bytes& der = certificate();
  char cn[256];
  unsigned char key[HYLORN_PUBKEY_SIZE];
  const long before = malloc_calls.load();
  for (auto _ : state) {
    const unsigned char* p = der.data();
    X509* x = d2i_X509(nullptr, &p, long(der.size()));
    require(x != nullptr, "d2i_X509");
    require(X509_NAME_get_text_by_NID(X509_get_subject_name(x), NID_commonName, cn, sizeof cn) > 0,
            "subject");
    unsigned char* k = key;
    require(i2d_PublicKey(X509_get0_pubkey(x), &k) > 0, "i2d_PublicKey");
    benchmark::DoNotOptimize(key);
    X509_free(x);
  }
  count_mallocs(state, before);
}

void our_encode(benchmark::State& state) {
  const CertInput in = our_input();
  Bytes der;
  const long before = malloc_calls.load();
  for (auto _ : state) {
    require(cert_test::encode_cert(in, &der) == 0, "Crypt_Encode_Cert");
    benchmark::DoNotOptimize(der.data());
  }
  count_mallocs(state, before);
}

void add_name(X509_NAME* name, const int* nids, const char* const* values, int n) {
  for (int i = 0; i < n; ++i) {
    const int type = nids[i] == NID_pkcs9_emailAddress ? V_ASN1_IA5STRING : V_ASN1_PRINTABLESTRING;
    require(
        X509_NAME_add_entry_by_NID(
            name, nids[i], type, reinterpret_cast<const unsigned char*>(values[i]), -1, -1, 0) == 1,
        "name");
  }
}

ASN1_BIT_STRING* bits(std::initializer_list<int> named) {
  ASN1_BIT_STRING* b = ASN1_BIT_STRING_new();
  for (int n : named) ASN1_BIT_STRING_set_bit(b, n, 1);
  return b;
}

// The same certificate as ours, from OpenSSL's structures.
X509* openssl_build(EVP_PKEY* key) {
  static const int issuerNids[] = {NID_countryName, NID_organizationName, NID_stateOrProvinceName,
                                   NID_commonName, NID_pkcs9_emailAddress};
  static const int subjectNids[] = {
      NID_countryName,         NID_organizationName, NID_organizationalUnitName,
      NID_stateOrProvinceName, NID_commonName,       NID_pkcs9_emailAddress,
      NID_localityName};
  X509* x = X509_new();
  X509_set_version(x, 2);
  ASN1_INTEGER_set(X509_get_serialNumber(x), 0x0A0B);
  add_name(X509_get_issuer_name(x), issuerNids, kIssuer, 5);
  add_name(X509_get_subject_name(x), subjectNids, kSubject, 7);
  ASN1_UTCTIME_set_string(X509_getm_notBefore(x), "250101000000Z");
  ASN1_UTCTIME_set_string(X509_getm_notAfter(x), "351231235959Z");
  X509_set_pubkey(x, key);
  ASN1_BIT_STRING* usage = bits({0, 2});
  X509_add1_ext_i2d(x, NID_key_usage, usage, 1, X509V3_ADD_DEFAULT);
  ASN1_BIT_STRING_free(usage);
  CERTIFICATEPOLICIES* policies = sk_POLICYINFO_new_null();
  POLICYINFO* policy = POLICYINFO_new();
  ASN1_OBJECT_free(policy->policyid);
  policy->policyid = OBJ_txt2obj("1.3.6.1.4.1.99999.1", 1);
  sk_POLICYINFO_push(policies, policy);
  X509_add1_ext_i2d(x, NID_certificate_policies, policies, 0, X509V3_ADD_DEFAULT);
  CERTIFICATEPOLICIES_free(policies);
  BASIC_CONSTRAINTS* bc = BASIC_CONSTRAINTS_new();
  X509_add1_ext_i2d(x, NID_basic_constraints, bc, 1, X509V3_ADD_DEFAULT);
  BASIC_CONSTRAINTS_free(bc);
  ASN1_BIT_STRING* type = bits({0, 2});
  X509_add1_ext_i2d(x, NID_netscape_cert_type, type, 0, X509V3_ADD_DEFAULT);
  ASN1_BIT_STRING_free(type);
  return x;
}

void openssl_encode(benchmark::State& state) {
  EVP_PKEY* key = shared_key().key.get();
  Bytes der(HYLORN_CERT_DER_SIZE);
  const long before = malloc_calls.load();
  for (auto _ : state) {
    X509* x = openssl_build(key);
    require(X509_sign(x, key, EVP_sha1()) > 0, "X509_sign");
    unsigned char* p = der.data();
    require(i2d_X509(x, &p) > 0, "i2d_X509");
    benchmark::DoNotOptimize(der.data());
    X509_free(x);
  }
  count_mallocs(state, before);
}

const bool registered = [] {
  hylorn_bench::register_pair("cert_decode", our_decode, "openssl", openssl_decode);
  hylorn_bench::register_pair("cert_encode_sign/sha1/rsa1024", our_encode, "openssl",
                              openssl_encode);
  return true;
}();

}  // namespace
