// Certificates made by OpenSSL's X509 API decode here field by field and verify under
// their issuer; malformed ones fail with the entries of the failing chain.
#include <gtest/gtest.h>
#include <openssl/bn.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <memory>

#include "cert_calls.h"
#include "support/error_list.h"
#include "support/openssl_bytes.h"
#include "support/openssl_rsa.h"

namespace {

using namespace cert_test;

struct X509Free {
  void operator()(X509* x) const { X509_free(x); }
};
using X509Ptr = std::unique_ptr<X509, X509Free>;

struct Entity {
  std::string country, org, cn, email;
};

void set_name(X509_NAME* name, const Entity& e) {
  const auto add = [&](int nid, int type, const std::string& v) {
    ASSERT_EQ(X509_NAME_add_entry_by_NID(name, nid, type, reinterpret_cast<const u8*>(v.data()),
                                         int(v.size()), -1, 0),
              1);
  };
  add(NID_countryName, V_ASN1_PRINTABLESTRING, e.country);
  add(NID_organizationName, V_ASN1_PRINTABLESTRING, e.org);
  add(NID_commonName, V_ASN1_PRINTABLESTRING, e.cn);
  add(NID_pkcs9_emailAddress, V_ASN1_IA5STRING, e.email);
}

void add_ext(X509* cert, X509* issuer, int nid, const char* value) {
  X509V3_CTX ctx;
  X509V3_set_ctx(&ctx, issuer, cert, nullptr, nullptr, 0);
  X509_EXTENSION* ext = X509V3_EXT_conf_nid(nullptr, &ctx, nid, value);
  ASSERT_NE(ext, nullptr) << value;
  X509_add_ext(cert, ext, -1);
  X509_EXTENSION_free(ext);
}

// A v3 certificate of subject's key, signed by issuerKey under md. issuer null: self-signed.
X509Ptr make_cert(EVP_PKEY* key, const Entity& subject, EVP_PKEY* issuerKey, X509* issuer,
                  const EVP_MD* md, const Bytes& serial) {
  X509Ptr cert(X509_new());
  X509_set_version(cert.get(), 2);
  BIGNUM* bn = BN_bin2bn(serial.data(), int(serial.size()), nullptr);
  BN_to_ASN1_INTEGER(bn, X509_get_serialNumber(cert.get()));
  BN_free(bn);
  set_name(X509_get_subject_name(cert.get()), subject);
  X509_set_issuer_name(cert.get(),
                       issuer ? X509_get_subject_name(issuer) : X509_get_subject_name(cert.get()));
  ASN1_UTCTIME_set_string(X509_getm_notBefore(cert.get()), "250102030405Z");
  ASN1_UTCTIME_set_string(X509_getm_notAfter(cert.get()), "450102030405Z");
  X509_set_pubkey(cert.get(), key);
  X509* signer = issuer ? issuer : cert.get();
  add_ext(cert.get(), signer, NID_basic_constraints,
          issuer ? "critical,CA:FALSE" : "critical,CA:TRUE,pathlen:1");
  add_ext(cert.get(), signer, NID_key_usage, "critical,digitalSignature,keyCertSign");
  add_ext(cert.get(), signer, NID_subject_alt_name, "DNS:example.com,email:a@example.com");
  add_ext(cert.get(), signer, NID_subject_key_identifier, "hash");
  if (issuer) add_ext(cert.get(), signer, NID_authority_key_identifier, "keyid:always");
  EXPECT_GT(X509_sign(cert.get(), issuerKey, md), 0);
  return cert;
}

Bytes der_of(X509* cert) {
  return i2d_bytes(i2d_X509, static_cast<const X509*>(cert));
}

struct Pair {
  EvpKey caKey, leafKey, otherKey;
};
const Pair& keys() {
  static const Pair* p = new Pair{openssl_keygen(1024), openssl_keygen(1024), openssl_keygen(1024)};
  return *p;
}

const Entity kCa{"CN", "OpenSSL CA", "Test CA", "ca@example.org"};
const Entity kLeaf{"US", "Leaf Inc", "leaf.example.org", "leaf@example.org"};

class OpenSslCert : public testing::TestWithParam<std::pair<const char*, unsigned>> {};

TEST_P(OpenSslCert, DecodesFieldByFieldAndVerifiesUnderItsIssuer) {
  const EVP_MD* md = EVP_get_digestbyname(GetParam().first);
  const Bytes serial = from_hex("00C0FFEE1234");
  const X509Ptr ca = make_cert(keys().caKey.get(), kCa, keys().caKey.get(), nullptr, md, {0x07});
  const X509Ptr leaf =
      make_cert(keys().leafKey.get(), kLeaf, keys().caKey.get(), ca.get(), md, serial);
  const X509Ptr stranger =
      make_cert(keys().otherKey.get(), kCa, keys().otherKey.get(), nullptr, md, {0x07});
  const Bytes der = der_of(leaf.get()), caDer = der_of(ca.get()),
              strangerDer = der_of(stranger.get());

  CertOutput out;
  ASSERT_EQ(decode_cert(der, &out), 0u) << error_text();
  EXPECT_EQ(out.version, 2u);
  EXPECT_EQ(bytes(out.serial, out.serialLen), from_hex("C0FFEE1234"));
  EXPECT_EQ(out.sigAlg, GetParam().second);
  EXPECT_EQ(bytes(out.params, out.paramsLen), from_hex("0500"));
  Name issuer, subject;
  issuer[kC] = "CN", issuer[kO] = "OpenSSL CA", issuer[kCN] = "Test CA";
  issuer[kEmail] = "ca@example.org";
  subject[kC] = "US", subject[kO] = "Leaf Inc", subject[kCN] = "leaf.example.org";
  subject[kEmail] = "leaf@example.org";
  EXPECT_EQ(name_of(out.issuer), issuer);
  EXPECT_EQ(name_of(out.subject), subject);
  EXPECT_STREQ(out.notBefore, "20250102030405");
  EXPECT_STREQ(out.notAfter, "20450102030405");
  EXPECT_EQ(bytes(out.pubKey, out.pubKeyLen), public_der(keys().leafKey.get()));
  const ASN1_BIT_STRING* sig = nullptr;
  X509_get0_signature(&sig, nullptr, leaf.get());
  EXPECT_EQ(bytes(out.signature, out.signatureLen), Bytes(sig->data, sig->data + sig->length));
  // AuthorityKeyIdentifier (a key identifier only), KeyUsage and BasicConstraints;
  // subjectAltName has no selection bit.
  EXPECT_EQ(out.extFlags, 0x13u);
  EXPECT_EQ(out.akiSerialLen, 0u);
  EXPECT_EQ(out.critFlags, 0x12u);
  EXPECT_EQ(out.keyUsage, 0x84u);
  EXPECT_EQ(out.cA, 0);
  EXPECT_EQ(out.pathLen, -1);
  const ASN1_OCTET_STRING* ski = X509_get0_subject_key_id(leaf.get());
  EXPECT_EQ(bytes(out.subjectKeyId, out.subjectKeyIdLen),
            Bytes(ski->data, ski->data + ski->length));

  CertOutput caOut;
  ASSERT_EQ(decode_cert(caDer, &caOut), 0u) << error_text();
  EXPECT_EQ(caOut.cA, 1);
  EXPECT_EQ(caOut.pathLen, 1);

  const auto verify = [](const Bytes& cert, const Bytes& root) {
    return Crypt_Ver_Cert_ByRootCert(cert.data(), unsigned(cert.size()), root.data(),
                                     unsigned(root.size()));
  };
  EXPECT_EQ(verify(der, caDer), 0u);
  EXPECT_EQ(verify(caDer, caDer), 0u);
  EXPECT_EQ(verify(der, strangerDer), 1u);
  EXPECT_EQ(verify(strangerDer, caDer), 1u);
}

INSTANTIATE_TEST_SUITE_P(Md5AndSha1, OpenSslCert,
                         testing::Values(std::make_pair("SHA1", 3u), std::make_pair("MD5", 2u)));

TEST(OpenSslCertErrors, EachFailingChainIsReported) {
  const EVP_MD* sha1 = EVP_sha1();
  const X509Ptr ca = make_cert(keys().caKey.get(), kCa, keys().caKey.get(), nullptr, sha1, {1});
  const Bytes caDer = der_of(ca.get());
  Bytes longSerial(129, 0x5A);
  const X509Ptr longSerialCert =
      make_cert(keys().leafKey.get(), kLeaf, keys().caKey.get(), ca.get(), sha1, longSerial);
  const EvpKey bigKey = openssl_keygen(2048);
  const X509Ptr bigSig = make_cert(bigKey.get(), kCa, bigKey.get(), nullptr, sha1, {1});
  const Bytes sha1Oid = tlv(0x06, from_hex("2A864886F70D010105"));

  const struct {
    const char* name;
    Bytes der;
    Entries expected;
  } cases[] = {
      {"outer SEQUENCE of two elements",
       tlv(0x30, concat({part(caDer, 0), part(caDer, 1)})),
       {{411, 6, " "}, {318, 2, "Der_Decode_COMMON_SIGNED_PACKET"}}},
      {"serial of 129 octets",
       der_of(longSerialCert.get()),
       {{302, 1, "serial number error"},
        {314, 6, "l2u_serialNumber"},
        {316, 2, "l2u_USER_X509_TBS_CERT"},
        {318, 4, "d2c_USER_X509_TBS_CERT"}}},
      {"AlgorithmIdentifier without parameters",
       tlv(0x30, concat({part(caDer, 0), tlv(0x30, sha1Oid), part(caDer, 2)})),
       {{206, 5, ""},
        {411, 5, "Der_Decode_X509_Alg_Id"},
        {318, 2, "Der_Decode_COMMON_SIGNED_PACKET"}}},
      {"signature of 256 octets", der_of(bigSig.get()), {{318, 6, "signature too long"}}},
  };
  for (const auto& c : cases) {
    CertOutput out;
    EXPECT_EQ(decode_cert(c.der, &out), 1u) << c.name;
    EXPECT_EQ(read_errors(), c.expected) << c.name;
  }
}

}  // namespace
