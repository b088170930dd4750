// What the request tests share: one key file made by our generator, DER assembled by
// hand, the exported functions called with readable arguments, and the outside tools.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <sstream>
#include <string>

#include "frame/error.h"
#include "hylorn.h"
#include "support/error_list.h"
#include "support/fail_malloc.h"
#include "support/hex.h"
#include "support/openssl_rsa.h"
#include "support/temp_dir.h"

namespace request_test {

using namespace hylorn_test;
using u8 = unsigned char;
using Name = std::array<std::string, 16>;  // C, O, OU, ST, CN, L, title, SN, GN, ...

// A DER element: tag, definite length (short form or one or two length octets), contents.
inline Bytes tlv(u8 tag, const Bytes& contents) {
  const std::size_t n = contents.size();
  Bytes out = n < 0x80    ? Bytes{tag, u8(n)}
              : n < 0x100 ? Bytes{tag, 0x81, u8(n)}
                          : Bytes{tag, 0x82, u8(n >> 8), u8(n)};
  out.insert(out.end(), contents.begin(), contents.end());
  return out;
}
inline Bytes cat(std::initializer_list<Bytes> parts) {
  Bytes out;
  for (const Bytes& p : parts) out.insert(out.end(), p.begin(), p.end());
  return out;
}
// AlgorithmIdentifier with a NULL parameter: rsaEncryption 1.1, md5WithRSA 1.4, ...
inline Bytes pkcs1_alg(u8 last) {
  return tlv(0x30,
             cat({from_hex("06 09 2A 86 48 86 F7 0D 01 01"), Bytes{last}, from_hex("05 00")}));
}
// SubjectPublicKeyInfo around RSAPublicKey octets, 0 unused bits.
inline Bytes spki(const Bytes& key) {
  return tlv(0x30, cat({pkcs1_alg(1), tlv(0x03, cat({{0}, key}))}));
}
// SEQUENCE { tbs, md5WithRSA, BIT STRING sig }
inline Bytes signed_md5(const Bytes& tbs, const Bytes& sig) {
  return tlv(0x30, cat({tbs, pkcs1_alg(4), tlv(0x03, cat({{0}, sig}))}));
}

// A key pair from our generator and the key file it wrote, kept for the whole run.
struct KeyFile {
  TempDir dir;
  std::string path = dir.path("request.key");
  Bytes pub = Bytes(HYLORN_PUBKEY_DER_SIZE);
  Bytes pri = Bytes(HYLORN_PRIKEY_DER_SIZE);
};
inline const KeyFile& key_file() {
  static KeyFile* k = [] {
    auto* f = new KeyFile;
    unsigned pubLen = 0, priLen = 0;
    if (Crypt_GenRSAKeyPair(f->path.c_str(), 0, f->pub.data(), &pubLen, f->pri.data(), &priLen))
      throw std::runtime_error("Crypt_GenRSAKeyPair");
    f->pub.resize(pubLen);
    f->pri.resize(priLen);
    return f;
  }();
  return *k;
}

struct Encoded {
  unsigned rc;
  Bytes der;
};
inline Encoded encode(const Name& s, const Bytes& key, const std::string& keyName, u8 version = 0) {
  Bytes out(HYLORN_CERT_DER_SIZE, 0xA5);
  unsigned outLen = 77;
  const unsigned rc = Crypt_Encode_Pkcs10(
      version, s[0].c_str(), s[1].c_str(), s[2].c_str(), s[3].c_str(), s[4].c_str(), s[5].c_str(),
      s[6].c_str(), s[7].c_str(), s[8].c_str(), s[9].c_str(), s[10].c_str(), s[11].c_str(),
      s[12].c_str(), s[13].c_str(), s[14].c_str(), s[15].c_str(), key.data(), unsigned(key.size()),
      keyName.c_str(), "second", out.data(), &outLen);
  if (rc != 0) {
    EXPECT_EQ(outLen, 77u);  // nothing written on failure
    return {rc, {}};
  }
  out.resize(outLen);
  return {rc, out};
}

struct Decoded {
  unsigned rc;
  unsigned version = 9;
  Name subject;
  Bytes key;
  std::string challenge;
};
// der is handed over in a block of exactly its size.
inline Decoded decode_pkcs10(const Bytes& der) {
  char s[16][HYLORN_NAME_SIZE] = {};
  Bytes key(HYLORN_PUBKEY_SIZE);
  unsigned keyLen = 0;
  Decoded d{};
  d.rc = Crypt_Decode_Pkcs10(der.data(), unsigned(der.size()), &d.version, s[0], s[1], s[2], s[3],
                             s[4], s[5], s[6], s[7], s[8], s[9], s[10], s[11], s[12], s[13], s[14],
                             s[15], key.data(), &keyLen);
  if (d.rc != 0) return d;
  for (int i = 0; i < 16; ++i) d.subject[i] = s[i];
  d.key.assign(key.begin(), key.begin() + keyLen);
  return d;
}
inline Decoded decode_spkac(const Bytes& der) {
  Bytes key(HYLORN_PUBKEY_SIZE);
  char challenge[HYLORN_CHALLENGE_SIZE];
  unsigned keyLen = 0;
  Decoded d{};
  d.rc = Crypt_Decode_NetscapeCertReq(der.data(), unsigned(der.size()), key.data(), &keyLen,
                                      challenge);
  if (d.rc != 0) return d;
  d.key.assign(key.begin(), key.begin() + keyLen);
  d.challenge = challenge;
  return d;
}

// Runs a shell command; its standard output and error, or nullopt-like "" with ok false.
struct ToolRun {
  bool ok;
  std::string out;
};
inline ToolRun run_tool(const std::string& command) {
  FILE* p = popen((command + " 2>&1").c_str(), "r");
  if (p == nullptr) return {false, ""};
  std::string out;
  char buf[4096];
  for (std::size_t n; (n = fread(buf, 1, sizeof buf, p)) > 0;) out.append(buf, n);
  return {pclose(p) == 0, out};
}
inline bool have_tool(const std::string& name) {
  return run_tool("command -v " + name + " >/dev/null").ok;
}

// The list as Crypt_Get_Err gives it. Unlike read_errors, keeps a message that is one
// blank (the shared reader's trailing blank in its format swallows it).
inline Entries entries() {
  Entries out;
  std::istringstream lines(error_text());
  for (std::string line; std::getline(lines, line);) {
    ErrEntry e{};
    std::sscanf(line.c_str(), "func_no = %d err_no = %d", &e.func_no, &e.err_no);
    const std::size_t at = line.find(" err_msg = ");
    e.msg = at == std::string::npos ? "<unparsed: " + line + ">" : line.substr(at + 11);
    out.push_back(e);
  }
  return out;
}

// An entry that a call leaving the list alone keeps at its end.
inline const ErrEntry kMarker{1, 1, "before"};
inline void put_marker() {
  hylorn::Crypt_Clear_Err();
  hylorn::Crypt_Put_Err(kMarker.func_no, kMarker.err_no, kMarker.msg.c_str());
}
// The list ends with tail (the entries below it belong to the certificate layer).
inline void expect_tail(const Entries& tail, const std::string& what) {
  const Entries list = entries();
  ASSERT_GE(list.size(), tail.size()) << what << "\n" << error_text();
  EXPECT_EQ(Entries(list.end() - long(tail.size()), list.end()), tail) << what;
}

// call with its 1st, 2nd, ... allocation failing answers 1 with outer's entry last, until
// a run in which nothing fails answers 0.
template <class Call>
void expect_each_allocation_fails(Call call, int outer) {
  for (int n = 1;; ++n) {
    unsigned rc;
    bool fired;
    {
      FailNthMalloc fail(n);
      rc = call();
      fired = fail.fired();
    }
    if (!fired) {
      EXPECT_EQ(rc, 0u) << n;
      return;
    }
    EXPECT_EQ(rc, 1u) << n;
    const Entries list = entries();
    ASSERT_FALSE(list.empty()) << n;
    EXPECT_EQ(list.back().func_no, outer) << n;
  }
}

}  // namespace request_test
