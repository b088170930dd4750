// What the request tests share: one key file made by our generator, DER assembled by
// hand, the exported functions called with readable arguments, the outside tools.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <cstdio>

#include "frame/error.h"
#include "hylorn.h"
#include "support/error_list.h"
#include "support/openssl_rsa.h"
#include "support/temp_dir.h"

namespace request_test {

using namespace hylorn_test;
using u8 = unsigned char;
using Name = std::array<std::string, 16>;  // slot order: C, O, OU, ST, CN, L, title, ...

// A DER element with a short or one- or two-octet long form length.
inline Bytes tlv(u8 tag, const Bytes& c) {
  const std::size_t n = c.size();
  Bytes out = n < 0x80
                  ? Bytes{tag, u8(n)}
                  : (n < 0x100 ? Bytes{tag, 0x81, u8(n)} : Bytes{tag, 0x82, u8(n >> 8), u8(n)});
  out.insert(out.end(), c.begin(), c.end());
  return out;
}
inline Bytes cat(std::initializer_list<Bytes> parts) {
  Bytes out;
  for (const Bytes& p : parts) out.insert(out.end(), p.begin(), p.end());
  return out;
}
// AlgorithmIdentifier { 1.2.840.113549.1.1.last, NULL }: 1 rsaEncryption, 4 md5WithRSA.
inline Bytes pkcs1_alg(u8 last) {
  return tlv(0x30, cat({from_hex("06 09 2A 86 48 86 F7 0D 01 01"), {last, 5, 0}}));
}
inline Bytes spki(const Bytes& key) {
  return tlv(0x30, cat({pkcs1_alg(1), tlv(0x03, cat({{0}, key}))}));
}
inline Bytes signed_md5(const Bytes& tbs, const Bytes& sig = Bytes(128, 0x33)) {
  return tlv(0x30, cat({tbs, pkcs1_alg(4), tlv(0x03, cat({{0}, sig}))}));
}

// A pair from our generator and the key file it wrote, for the whole run.
struct KeyFile {
  TempDir dir;
  std::string path = dir.path("request.key");
  Bytes pub = Bytes(HYLORN_PUBKEY_DER_SIZE), pri = Bytes(HYLORN_PRIKEY_DER_SIZE);
};
inline const KeyFile& key_file() {
  static KeyFile k;  // its directory goes when the run ends
  static const bool made = [] {
    unsigned pubLen = 0, priLen = 0;
    const unsigned rc =
        Crypt_GenRSAKeyPair(k.path.c_str(), 0, k.pub.data(), &pubLen, k.pri.data(), &priLen);
    k.pub.resize(pubLen);
    k.pri.resize(priLen);
    return rc == 0;
  }();
  EXPECT_TRUE(made);
  return k;
}

// The request, or empty when encoding fails (the length output must then be untouched).
inline Bytes encode(const Name& s, const Bytes& key, const std::string& keyName, u8 version = 0) {
  Bytes out(HYLORN_CERT_DER_SIZE);
  unsigned len = 77;
  if (Crypt_Encode_Pkcs10(version, s[0].c_str(), s[1].c_str(), s[2].c_str(), s[3].c_str(),
                          s[4].c_str(), s[5].c_str(), s[6].c_str(), s[7].c_str(), s[8].c_str(),
                          s[9].c_str(), s[10].c_str(), s[11].c_str(), s[12].c_str(), s[13].c_str(),
                          s[14].c_str(), s[15].c_str(), key.data(), unsigned(key.size()),
                          keyName.c_str(), "", out.data(), &len) != 0) {
    EXPECT_EQ(len, 77u);
    return {};
  }
  out.resize(len);
  return out;
}

struct Decoded {
  unsigned rc, version = 9;
  Name subject;
  Bytes key;
  std::string challenge;
};
// der reaches the library in a block of exactly its size.
inline Decoded decode_pkcs10(const Bytes& der) {
  char s[16][HYLORN_NAME_SIZE];
  u8 key[HYLORN_PUBKEY_SIZE];
  unsigned len = 0;
  Decoded d{};
  d.rc = Crypt_Decode_Pkcs10(der.data(), unsigned(der.size()), &d.version, s[0], s[1], s[2], s[3],
                             s[4], s[5], s[6], s[7], s[8], s[9], s[10], s[11], s[12], s[13], s[14],
                             s[15], key, &len);
  for (int i = 0; d.rc == 0 && i < 16; ++i) d.subject[i] = s[i];
  if (d.rc == 0) d.key.assign(key, key + len);
  return d;
}
inline Decoded decode_spkac(const Bytes& der) {
  u8 key[HYLORN_PUBKEY_SIZE];
  char challenge[HYLORN_CHALLENGE_SIZE];
  unsigned len = 0;
  Decoded d{};
  d.rc = Crypt_Decode_NetscapeCertReq(der.data(), unsigned(der.size()), key, &len, challenge);
  if (d.rc == 0) d.key.assign(key, key + len), d.challenge = challenge;
  return d;
}

// Output and error of a shell command, and whether it exited with 0.
inline std::pair<bool, std::string> run_tool(const std::string& command) {
  FILE* p = popen((command + " 2>&1").c_str(), "r");
  std::string out;
  char buf[4096];
  for (std::size_t n; p != nullptr && (n = fread(buf, 1, sizeof buf, p)) > 0;) out.append(buf, n);
  return {p != nullptr && pclose(p) == 0, out};
}
inline bool have_tool(const std::string& name) {
  return run_tool("command -v " + name).first;
}

// An entry for calls that must leave the list alone.
inline const ErrEntry kMarker{1, 1, "before"};
inline void put_marker() {
  hylorn::Crypt_Clear_Err();
  hylorn::Crypt_Put_Err(kMarker.func_no, kMarker.err_no, kMarker.msg.c_str());
}
// The list ends with tail; what comes before belongs to the layers below.
inline void expect_tail(const Entries& tail, const std::string& what) {
  const Entries list = read_errors();
  ASSERT_GE(list.size(), tail.size()) << what << "\n" << error_text();
  EXPECT_EQ(Entries(list.end() - long(tail.size()), list.end()), tail) << what;
}

}  // namespace request_test
