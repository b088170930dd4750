// Crypt_Gen_Hash and Crypt_Gen_Encoded_Hash through the public interface; DigestInfo
// encodings are read back with OpenSSL's parser and must re-encode to the same bytes.
#include <gtest/gtest.h>
#include <openssl/objects.h>
#include <openssl/x509.h>

#include <climits>
#include <vector>

#include "crypto/digest.h"
#include "hylorn.h"
#include "openssl_oracle.h"
#include "support/hex.h"

namespace {

using hylorn_test::Bytes;
using hylorn_test::to_hex;

const Bytes kMessage = hylorn_test::bytes_of("The quick brown fox jumps over the lazy dog");

// MD2 has no OpenSSL implementation here: its reference is the RFC 1319 suite.
Bytes md2_of_message() {
  return hylorn_test::from_hex("03d85a0d629d2c442e987525319fc471");
}

struct AlgCase {
  int alg;
  int nid;
  unsigned size, encoded_size;
};

const AlgCase kAccepted[] = {
    {1, NID_md2, 16, 34}, {7, NID_md2, 16, 34}, {2, NID_md5, 16, 34},
    {5, NID_md5, 16, 34}, {3, NID_sha1, 20, 35}, {6, NID_sha1, 20, 35},
};

Bytes reference_digest(int nid) {
  if (nid == NID_md2) return md2_of_message();
  return hylorn_test::openssl_digest(EVP_get_digestbynid(nid), kMessage.data(), kMessage.size());
}

TEST(HashApi, EachAcceptedNumberGivesItsDigest) {
  for (const AlgCase& c : kAccepted) {
    Bytes out(32, 0xEE);
    unsigned len = 0;
    ASSERT_EQ(Crypt_Gen_Hash(c.alg, kMessage.data(), static_cast<unsigned>(kMessage.size()),
                             out.data(), &len), 0) << c.alg;
    EXPECT_EQ(len, c.size);
    EXPECT_EQ(Bytes(out.begin(), out.begin() + len), reference_digest(c.nid)) << c.alg;
    EXPECT_EQ(out[c.size], 0xEE) << "wrote past the digest, alg " << c.alg;
  }
}

TEST(HashApi, EncodedHashIsTheDigestInfoOfTheDigest) {
  for (const AlgCase& c : kAccepted) {
    Bytes out(40, 0xEE);
    unsigned len = 0;
    ASSERT_EQ(Crypt_Gen_Encoded_Hash(c.alg, kMessage.data(),
                                     static_cast<unsigned>(kMessage.size()), out.data(), &len), 0);
    ASSERT_EQ(len, c.encoded_size) << c.alg;
    EXPECT_EQ(out[len], 0xEE);

    const unsigned char* p = out.data();
    X509_SIG* sig = d2i_X509_SIG(nullptr, &p, static_cast<long>(len));
    ASSERT_NE(sig, nullptr) << c.alg;
    EXPECT_EQ(p, out.data() + len);
    const X509_ALGOR* algor = nullptr;
    const ASN1_OCTET_STRING* digest = nullptr;
    X509_SIG_get0(sig, &algor, &digest);
    const ASN1_OBJECT* oid = nullptr;
    int ptype = 0;
    X509_ALGOR_get0(&oid, &ptype, nullptr, algor);
    EXPECT_EQ(OBJ_obj2nid(oid), c.nid);
    EXPECT_EQ(ptype, V_ASN1_NULL);
    EXPECT_EQ(Bytes(digest->data, digest->data + digest->length), reference_digest(c.nid));
    unsigned char* der = nullptr;
    int der_len = i2d_X509_SIG(sig, &der);
    EXPECT_EQ(Bytes(der, der + der_len), Bytes(out.begin(), out.begin() + len)) << c.alg;
    OPENSSL_free(der);
    X509_SIG_free(sig);
  }
}

TEST(HashApi, RefusedNumbersWriteNothing) {
  for (int alg : {0, 4, 8, 9, -1, 100, INT_MIN, INT_MAX}) {
    Bytes out(40, 0xEE);
    unsigned len = 0xDEADBEEF;
    EXPECT_EQ(Crypt_Gen_Hash(alg, kMessage.data(), 3, out.data(), &len), 1) << alg;
    EXPECT_EQ(Crypt_Gen_Encoded_Hash(alg, kMessage.data(), 3, out.data(), &len), 1) << alg;
    EXPECT_EQ(len, 0xDEADBEEFu);
    EXPECT_EQ(out, Bytes(40, 0xEE));
  }
}

// A null digest pointer ends in the one-shot digest's static buffer.
TEST(HashApi, NullDigestGoesToTheStaticBuffer) {
  const unsigned char* shared = hylorn::Digest_SHA1(nullptr, 0, nullptr);
  unsigned len = 0;
  ASSERT_EQ(Crypt_Gen_Hash(3, kMessage.data(), static_cast<unsigned>(kMessage.size()), nullptr,
                           &len), 0);
  EXPECT_EQ(len, 20u);
  EXPECT_EQ(Bytes(shared, shared + 20), reference_digest(NID_sha1));
}

}  // namespace
