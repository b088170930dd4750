// Times, validity, algorithm identifiers, public keys, the small TBSCertificate fields
// and the signed packet: DER against OpenSSL or bytes assembled from RFC 5280, the
// caller conversions with their limits, and the entries of what does not decode.
#include <gtest/gtest.h>
#include <openssl/objects.h>
#include <openssl/x509.h>

#include <memory>
#include <string>
#include <vector>

#include "field_fixtures.h"
#include "support/error_list.h"
#include "support/hex.h"
#include "support/openssl_bytes.h"
#include "support/openssl_rsa.h"
#include "x509/public_key.h"
#include "x509/signed_packet.h"
#include "x509/tbs_cert.h"
#include "x509/time.h"

namespace {

using namespace hylorn_test;
using namespace x509_test;
using hylorn::DATA_BUFFER;
using hylorn::u16;
using hylorn::u32;
using hylorn::u8;

u32 size_of(const Bytes& b) {
  return static_cast<u32>(b.size());
}

// ---- times -------------------------------------------------------------------------

// Guards the 2050 rule both ways and their deliberate disagreement at 2050.
TEST(TimeConvert, CenturyRules) {
  struct Case {
    const char* user;
    hylorn::u8 type;
    const char* der_text;
    const char* back;
  };
  const Case cases[] = {
      {"20491231235959", 0, "491231235959Z", "20491231235959"},
      {"20500101000000", 1, "20500101000000Z", "20500101000000"},
      {"19510101000000", 0, "510101000000Z", "19510101000000"},
      {"19500101000000", 0, "500101000000Z", "20500101000000"},
      {"99991231235959", 1, "99991231235959Z", "99991231235959"},
  };
  for (const Case& c : cases) {
    hylorn::X509_TIME t{};
    EXPECT_EQ(hylorn::u2l_X509_TIME(c.user, &t), 0u);
    EXPECT_EQ(t.type, c.type) << c.user;
    EXPECT_STREQ(t.text, c.der_text);
    char back[hylorn::kTimeTextSize];
    EXPECT_EQ(hylorn::l2u_X509_TIME(&t, back), 0u);
    EXPECT_STREQ(back, c.back);
  }
}

// Guards the reads of short caller texts: each sits in a heap block of exactly its size,
// so ASan catches a read past the NUL.
TEST(TimeConvert, ShortTextsAreReadUpToTheirNul) {
  const std::pair<const char*, const char*> cases[] = {{"", "Z"},         {"2", "Z"},
                                                       {"20", "Z"},       {"2049", "49Z"},
                                                       {"2050", "2050Z"}, {"205001", "205001Z"}};
  for (const auto& [text, expected] : cases) {
    const std::size_t n = std::strlen(text) + 1;
    std::unique_ptr<char[]> exact(new char[n]);
    std::memcpy(exact.get(), text, n);
    hylorn::X509_TIME t{};
    hylorn::u2l_X509_TIME(exact.get(), &t);
    EXPECT_STREQ(t.text, expected) << text;
  }
}

// Guards the DER of both time forms: RFC 5280's Validity assembled by hand.
TEST(Validity, EncodesBothFormsAndReadsThemBack) {
  hylorn::X509_VALIDITY v{};
  hylorn::u2l_X509_VALIDITY("20491231235959", "20500101000000", &v);
  const Bytes der = encoded([&](DATA_BUFFER* o) { return hylorn::Der_Encode_Validity(&v, o); });
  const Bytes expected = openssl_tlv(true, V_ASN1_SEQUENCE, V_ASN1_UNIVERSAL, [] {
    Bytes b = openssl_tlv(false, V_ASN1_UTCTIME, V_ASN1_UNIVERSAL, bytes_of("491231235959Z"));
    const Bytes g =
        openssl_tlv(false, V_ASN1_GENERALIZEDTIME, V_ASN1_UNIVERSAL, bytes_of("20500101000000Z"));
    b.insert(b.end(), g.begin(), g.end());
    return b;
  }());
  EXPECT_EQ(to_hex(der), to_hex(expected));
  hylorn::X509_VALIDITY back{};
  ASSERT_EQ(hylorn::Der_Decode_Validity(size_of(der), der.data(), &back), 0u);
  char before[hylorn::kTimeTextSize], after[hylorn::kTimeTextSize];
  EXPECT_EQ(hylorn::l2u_X509_VALIDITY(back, before, after), 0u);
  EXPECT_STREQ(before, "20491231235959");
  EXPECT_STREQ(after, "20500101000000");
}

struct BadDer {
  const char* what;
  std::string der;
  Entries entries;
};

// Guards the numbers of the validity and time decoders, and the bound of the record.
TEST(Validity, RefusalsListTheirStep) {
  const std::string t32(32, '1');
  const BadDer cases[] = {
      {"empty", "3000", {{210, 3, ""}}},
      {"notAfter missing", "300f170d343931323331323335393539 5a", {{210, 8, ""}}},
      {"notBefore a PrintableString", "3006 130131 170131", {{210, 6, ""}}},
      {"notAfter an INTEGER", "3006 170131 020101", {{210, 11, ""}}},
      {"notAfter of 32 characters",
       "3025 170131 1820" + to_hex(bytes_of(t32)),
       {{210, 12, "data too length"}}},
  };
  for (const BadDer& c : cases) {
    const Bytes der = from_hex(c.der);
    hylorn::X509_VALIDITY v{};
    EXPECT_EQ(hylorn::Der_Decode_Validity(size_of(der), der.data(), &v), 1u) << c.what;
    EXPECT_EQ(read_errors(), c.entries) << c.what;
  }
  const Bytes tag = from_hex("0c0131");
  hylorn::X509_TIME t{};
  EXPECT_EQ(hylorn::Der_Decode_X509_TIME(size_of(tag), tag.data(), &t), 1u);
  EXPECT_EQ(read_errors(), (Entries{{225, 6, ""}}));
  t.type = 2;
  EXPECT_EQ(encoded([&](DATA_BUFFER* o) { return hylorn::Der_Encode_X509_TIME(&t, o); }), Bytes{});
  EXPECT_EQ(read_errors(), (Entries{{224, 5, ""}}));
  hylorn::X509_VALIDITY v{};
  v.notAfter.type = 7;
  char a[hylorn::kTimeTextSize], b[hylorn::kTimeTextSize];
  EXPECT_EQ(hylorn::l2u_X509_VALIDITY(v, a, b), 1u);
  EXPECT_EQ(read_errors(), (Entries{{308, 63, "ASN1_Find_Object_ID"}}));
}

// ---- algorithm identifiers and public keys ------------------------------------------

Bytes openssl_algor(int nid, bool null_parameters) {
  X509_ALGOR* a = X509_ALGOR_new();
  X509_ALGOR_set0(a, OBJ_nid2obj(nid), null_parameters ? V_ASN1_NULL : V_ASN1_UNDEF, nullptr);
  Bytes der = i2d_bytes(i2d_X509_ALGOR, static_cast<const X509_ALGOR*>(a));
  X509_ALGOR_free(a);
  return der;
}

// Guards the caller numbers' identifiers and the verbatim parameters: ours against
// OpenSSL's, then OpenSSL's read back to the same caller record.
TEST(AlgorithmId, MatchesOpenSslBothWays) {
  const std::pair<u16, int> cases[] = {{1, NID_md2WithRSAEncryption},
                                       {2, NID_md5WithRSAEncryption},
                                       {3, NID_sha1WithRSA},
                                       {4, NID_rsaEncryption}};
  for (const auto& [number, nid] : cases) {
    hylorn::USER_X509_ALG_ID user{number, {0x05, 0x00}, 2};
    hylorn::X509_ALG_ID alg{};
    ASSERT_EQ(hylorn::u2l_signature(&user, &alg), 0u);
    const Bytes der =
        encoded([&](DATA_BUFFER* o) { return hylorn::Der_Encode_X509_Alg_Id(&alg, o); });
    hylorn::free_X509_ALG_ID(&alg);
    EXPECT_EQ(to_hex(der), to_hex(openssl_algor(nid, true))) << number;

    hylorn::X509_ALG_ID back{};
    ASSERT_EQ(hylorn::Der_Decode_X509_Alg_Id(size_of(der), der.data(), &back), 0u);
    hylorn::USER_X509_ALG_ID user_back{};
    EXPECT_EQ(hylorn::l2u_signature(&back, &user_back), 0u);
    hylorn::free_X509_ALG_ID(&back);
    EXPECT_EQ(user_back.algorithm, number);
    EXPECT_EQ(to_hex(user_back.parameters, user_back.parametersLength), "0500");
  }
  // 1.2.840.113549.1.1.5 reads as the caller's 3 too.
  const Bytes sha1 = openssl_algor(NID_sha1WithRSAEncryption, true);
  hylorn::X509_ALG_ID alg{};
  ASSERT_EQ(hylorn::Der_Decode_X509_Alg_Id(size_of(sha1), sha1.data(), &alg), 0u);
  hylorn::USER_X509_ALG_ID user{};
  EXPECT_EQ(hylorn::l2u_signature(&alg, &user), 0u);
  EXPECT_EQ(user.algorithm, 3);
  hylorn::free_X509_ALG_ID(&alg);
}

// Guards the strict two-component rule and the other refusals.
TEST(AlgorithmId, RefusalsListTheirStep) {
  const BadDer cases[] = {
      {"no parameters", to_hex(openssl_algor(NID_sha1WithRSAEncryption, false)), {{206, 5, ""}}},
      {"empty", "3000", {{206, 2, ""}}},
      {"unknown algorithm",
       "300706032a030405 00",
       {{102, 1, "ASN1 oidValue not found"}, {206, 4, "ASN1_Find_Oid_Value"}}},
      {"first not an OID",
       "3004 0500 0500",
       {{104, 2, "tag type error"}, {206, 3, "ASN1_Decode_Object"}}},
      {"not a SEQUENCE", "3100", {{108, 2, "tag type error"}, {206, 1, "ASN1_Decode_Sequence"}}},
  };
  for (const BadDer& c : cases) {
    const Bytes der = from_hex(c.der);
    hylorn::X509_ALG_ID alg{};
    EXPECT_EQ(hylorn::Der_Decode_X509_Alg_Id(size_of(der), der.data(), &alg), 1u) << c.what;
    EXPECT_EQ(alg.algorithm.oid.data, nullptr);
    EXPECT_EQ(alg.parameters.data, nullptr);
    EXPECT_EQ(read_errors(), c.entries) << c.what;
  }
}

// Guards the SubjectPublicKeyInfo layout against OpenSSL's i2d_PUBKEY, both ways.
TEST(PublicKey, MatchesOpenSslBothWays) {
  EvpKey key = openssl_keygen(1024);
  const Bytes rsa = public_der(key.get());
  const Bytes spki = i2d_bytes(i2d_PUBKEY, static_cast<const EVP_PKEY*>(key.get()));

  hylorn::X509_PUBLIC_KEY decoded{};
  ASSERT_EQ(hylorn::Der_Decode_X509_Public_Key(size_of(spki), spki.data(), &decoded), 0u);
  auto user = std::make_unique<hylorn::USER_X509_PUBLIC_KEY>();
  ASSERT_EQ(hylorn::l2u_subjectPublickeyInfo(&decoded, user.get()), 0u);
  hylorn::free_X509_PUBLIC_KEY(&decoded);
  EXPECT_EQ(to_hex(user->subjectPublicKey, user->subjectPublicKeyLength), to_hex(rsa));
  EXPECT_EQ(user->algorithm.algorithm, 4);

  hylorn::X509_PUBLIC_KEY ours{};
  ASSERT_EQ(hylorn::u2l_subjectPublicKeyInfo(user.get(), &ours), 0u);
  const Bytes der =
      encoded([&](DATA_BUFFER* o) { return hylorn::Der_Encode_X509_Public_Key(&ours, o); });
  hylorn::free_X509_PUBLIC_KEY(&ours);
  EXPECT_EQ(to_hex(der), to_hex(spki));
}

// Guards the key bound of the caller record (1,023 octets fit, 1,024 do not) and the
// decoder's missing components.
TEST(PublicKey, LimitsAndRefusals) {
  auto user = std::make_unique<hylorn::USER_X509_PUBLIC_KEY>();
  for (u32 length : {1023u, 1024u}) {
    std::vector<u8> octets(length, 0x5A);
    hylorn::X509_PUBLIC_KEY key{{{8, {0, nullptr}}, {0, nullptr}}, {length, octets.data()}};
    EXPECT_EQ(hylorn::l2u_subjectPublickeyInfo(&key, user.get()), length == 1024 ? 1u : 0u);
  }
  EXPECT_EQ(read_errors(), (Entries{{310, 1, "subject public key too long"}}));
  const BadDer cases[] = {
      {"empty", "3000", {{212, 3, ""}}},
      {"algorithm without parameters",
       "300d 300b06092a864886f70d010101",
       {{206, 5, ""}, {212, 4, "Der_Decode_X509_Alg_Id"}}},
      {"key missing", "300f300d06092a864886f70d0101010500", {{212, 5, ""}}},
      {"key not a BIT STRING",
       "3012300d06092a864886f70d0101010500 040100",
       {{106, 2, "tag type"}, {212, 6, "ASN1_Decode_Bit_String"}}},
  };
  for (const BadDer& c : cases) {
    const Bytes der = from_hex(c.der);
    hylorn::X509_PUBLIC_KEY key{};
    EXPECT_EQ(hylorn::Der_Decode_X509_Public_Key(size_of(der), der.data(), &key), 1u) << c.what;
    EXPECT_EQ(read_errors(), c.entries) << c.what;
  }
}

// ---- version, serial number, unique identifiers --------------------------------------

// Guards the limits that only the way back to the caller record checks.
TEST(SmallFields, LimitsOfTheCallerRecord) {
  u8 version = 9;
  EXPECT_EQ(hylorn::u2l_version(2, &version), 0u);
  EXPECT_EQ(version, 2);
  EXPECT_EQ(hylorn::u2l_version(3, &version), 1u);
  EXPECT_EQ(read_errors(), (Entries{{319, 1, "version error"}}));
  EXPECT_EQ(hylorn::l2u_version(3, &version), 1u);
  EXPECT_EQ(read_errors(), (Entries{{320, 1, "version error"}}));

  std::vector<u8> octets(129, 0x42);
  u8 serial[hylorn::kSerialSize];
  u16 serial_length = 0;
  for (u32 length : {0u, 1u, 128u, 129u}) {
    DATA_BUFFER in{};
    EXPECT_EQ(hylorn::u2l_serialNumber(octets.data(), length, &in), 0u);  // never refused
    EXPECT_EQ(in.length, length);
    const bool fits = length >= 1 && length <= 128;
    EXPECT_EQ(hylorn::l2u_serialNumber(&in, serial, &serial_length), fits ? 0u : 1u) << length;
    if (fits)
      EXPECT_EQ(serial_length, length);
    else
      EXPECT_EQ(read_errors(), (Entries{{302, 1, "serial number error"}}));
    hylorn::free_DATA_BUFFER(&in);
  }

  hylorn::USER_UNIQUE_ID id{};
  for (u16 length : {u16{0}, u16{127}, u16{128}}) {
    id.idLength = length;
    hylorn::BIT_DATA_BUFFER bits{};
    EXPECT_EQ(hylorn::u2l_certUniqueID(&id, &bits), 0u);
    EXPECT_EQ(bits.unusedBits, 0u);
    hylorn::USER_UNIQUE_ID back{};
    EXPECT_EQ(hylorn::l2u_certUniqueID(&bits, &back), length == 128 ? 1u : 0u);
    hylorn::free_BIT_DATA_BUFFER(&bits);
  }
  EXPECT_EQ(read_errors(), (Entries{{312, 1, "UniqueID too long"}}));
}

// ---- signed packet ------------------------------------------------------------------------

// Guards the wrapper's layout (tbs verbatim, AlgorithmIdentifier, BIT STRING with 0 unused
// bits), assembled by hand, and the way back.
TEST(SignedPacket, LayoutAndRoundTrip) {
  const Bytes tbs = from_hex("3003 020107"), signature = from_hex("a1b2c3");
  hylorn::COMMON_SIGNED_PACKET packet{};
  hylorn::ini_COMMON_SIGNED_PACKET(&packet);
  packet.tbs = {size_of(tbs), const_cast<u8*>(tbs.data())};
  packet.signature = {size_of(signature), const_cast<u8*>(signature.data())};
  hylorn::USER_X509_ALG_ID user{2, {0x05, 0x00}, 2};
  ASSERT_EQ(hylorn::u2l_signature(&user, &packet.signatureAlgorithm), 0u);
  const Bytes der =
      encoded([&](DATA_BUFFER* o) { return hylorn::Der_Encode_COMMON_SIGNED_PACKET(&packet, o); });
  hylorn::free_X509_ALG_ID(&packet.signatureAlgorithm);
  const Bytes expected = from_hex("301a 3003020107 300d06092a864886f70d0101040500 030400a1b2c3");
  EXPECT_EQ(to_hex(der), to_hex(expected));

  hylorn::COMMON_SIGNED_PACKET back{};
  hylorn::ini_COMMON_SIGNED_PACKET(&back);
  ASSERT_EQ(hylorn::Der_Decode_COMMON_SIGNED_PACKET(size_of(der), der.data(), &back), 0u);
  EXPECT_EQ(to_hex(back.tbs.data, back.tbs.length), to_hex(tbs));
  EXPECT_EQ(to_hex(back.signature.data, back.signature.length), to_hex(signature));
  EXPECT_EQ(back.signatureAlgorithm.algorithm.oidValue, 2u);
  hylorn::free_COMMON_SIGNED_PACKET(&back);
  hylorn::free_COMMON_SIGNED_PACKET(&back);  // a second free is harmless
}

TEST(SignedPacket, RefusalsListTheirStep) {
  const BadDer cases[] = {
      {"empty", "3000", {{411, 2, " "}}},
      {"tbs only", "3005 3003020107", {{411, 4, " "}}},
      {"no signature", "3014 3003020107 300d06092a864886f70d0101040500", {{411, 6, " "}}},
      {"algorithm without parameters",
       "3016 3003020107 300b06092a864886f70d010104 03020000",
       {{206, 5, ""}, {411, 5, "Der_Decode_X509_Alg_Id"}}},
      {"signature not a BIT STRING",
       "3019 3003020107 300d06092a864886f70d0101040500 0403a1b2c3",
       {{106, 2, "tag type"}, {411, 7, "ASN1_Decode_Bit_String"}}},
      {"not a SEQUENCE", "0400", {{108, 2, "tag type error"}, {411, 1, "ASN1_Decode_Sequence"}}},
  };
  for (const BadDer& c : cases) {
    const Bytes der = from_hex(c.der);
    hylorn::COMMON_SIGNED_PACKET packet{};
    hylorn::ini_COMMON_SIGNED_PACKET(&packet);
    EXPECT_EQ(hylorn::Der_Decode_COMMON_SIGNED_PACKET(size_of(der), der.data(), &packet), 1u)
        << c.what;
    EXPECT_EQ(packet.tbs.data, nullptr) << c.what;
    EXPECT_EQ(error_text(), entries_text(c.entries)) << c.what;
  }
}

}  // namespace
