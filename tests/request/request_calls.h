// Requests in the caller's terms: built by hand in DER, written and read through the three
// exported request functions.
#pragma once
#include <array>
#include <string>

#include "x509/cert_calls.h"
#include "x509/common.h"

namespace request_test {

using namespace hylorn_test;
using u8 = unsigned char;
using x509_test::Name;

const auto named = [](const std::string& cn) { return Name{"DE", "Hylorn", "", "", cn}; };

// AlgorithmIdentifier { 1.2.840.113549.1.1.n, NULL }: 1 rsaEncryption, 3 md4WithRSA, 4 md5WithRSA.
inline Bytes alg(u8 n) {
  return seq({from_hex("06 09 2A 86 48 86 F7 0D 01 01"), {n, 5, 0}});
}
inline Bytes bits(const Bytes& b) {
  return tlv(0x03, concat({{0}, b}));
}
inline Bytes spki(const Bytes& key) {
  return seq({alg(1), bits(key)});
}
// tbs signed with md5WithRSAEncryption by nobody: the readers do not check the signature.
inline Bytes signed_md5(const Bytes& tbs, const Bytes& sig = Bytes(128, 0x33), u8 n = 4) {
  return seq({tbs, alg(n), bits(sig)});
}
// Name: C "DE", O "Hylorn", CN cn, one PrintableString AttributeTypeAndValue per RDN.
inline Bytes name_der(const std::string& cn = "Request One") {
  Bytes rdns;
  for (auto [type, value] : {std::pair<u8, std::string>{6, "DE"}, {10, "Hylorn"}, {3, cn}}) {
    rdns = concat(
        {rdns, tlv(0x31, seq({from_hex("06 03 55 04"), {type}, tlv(0x13, bytes_of(value))}))});
  }
  return tlv(0x30, rdns);
}
// CertificationRequestInfo; attributes [0] IMPLICIT SET OF Attribute, empty.
inline Bytes info(const Bytes& key, const Bytes& name = name_der(),
                  const Bytes& version = {2, 1, 0}, const Bytes& attributes = {0xA0, 0}) {
  return seq({version, name, spki(key), attributes});
}
// SignedPublicKeyAndChallenge around key, challenge and more.
inline Bytes spkac(const Bytes& key, const Bytes& challenge, const Bytes& more = {}) {
  return signed_md5(seq({spki(key), challenge, more}));
}

// Empty when encoding fails: it answers 1 and leaves the length output untouched.
inline Bytes encode(const Name& s, const Bytes& key, const std::string& keyName, u8 version = 0) {
  Bytes out(HYLORN_PKCS10_DER_SIZE);
  unsigned len = 77;
  const unsigned rc = Crypt_Encode_Pkcs10(version, IN_SLOTS(s), key.data(), unsigned(key.size()),
                                          keyName.c_str(), "", out.data(), &len);
  if (rc != 0) {
    EXPECT_EQ(std::make_pair(rc, len), std::make_pair(1u, 77u));
    return {};
  }
  out.resize(len);
  return out;
}

struct Decoded {
  unsigned rc = 1, version = 0;
  Name subject;
  Bytes key;
  std::string challenge;
};
// der reaches the library in a block of exactly its size; spkac picks the Netscape reader.
inline Decoded decode(bool spkac, const Bytes& der) {
  char s[16][HYLORN_NAME_SIZE], challenge[HYLORN_CHALLENGE_SIZE] = "";
  u8 key[HYLORN_PUBKEY_SIZE];
  unsigned len = 0, n = unsigned(der.size());
  Decoded d;
  d.rc = spkac ? Crypt_Decode_NetscapeCertReq(der.data(), n, key, &len, challenge)
               : Crypt_Decode_Pkcs10(der.data(), n, &d.version, OUT_SLOTS(s), key, &len);
  for (int i = 0; d.rc == 0 && !spkac && i < 16; ++i) d.subject[i] = s[i];
  if (d.rc == 0) d.key.assign(key, key + len), d.challenge = challenge;
  return d;
}

}  // namespace request_test
