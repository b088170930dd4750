// The tool's key, digest, cipher and encoding commands and its argument handling, run as
// a user runs them and checked with the openssl program.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <set>

#include "tool_runner.h"

namespace hylorn_test {
namespace {

TEST_F(ToolTest, EverySubcommandDocumentsItself) {
  for (std::string cmd : {"", "genkey", "req", "ca", "ca init", "ca issue", "ca revoke", "ca crl",
                          "ca list", "show", "verify", "chain", "hash", "enc", "dec", "pem", "der"})
    script({{cmd + " --help", 0, {"Usage:", "--help"}}});
}

// Each key file is private, OpenSSL finds it consistent and its public half is the one
// written beside it; with a clock-seeded generator keys made in a row would be equal.
TEST_F(ToolTest, KeyFilesArePrivateMatchTheirPublicKeyAndDiffer) {
  std::set<std::string> moduli;
  for (std::string k : {"k0", "k1", "k2", "k3"}) {
    script({{"genkey -o %" + k + " -p %" + k + ".pub"},
            {"openssl rsa -inform DER -in %" + k + " -noout -check -text",
             0,
             {"RSA key ok", "Private-Key: (1024 bit, 2 primes)", "publicExponent: 65537"}}});
    const std::string modulus = run("openssl rsa -inform DER -in %" + k + " -noout -modulus").out;
    EXPECT_EQ(run("openssl rsa -RSAPublicKey_in -in %" + k + ".pub -noout -modulus").out, modulus);
    moduli.insert(modulus);
    struct stat st;
    ASSERT_EQ(stat(path(k).c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);
  }
  EXPECT_EQ(moduli.size(), 4u);
}

TEST_F(ToolTest, ExistingKeyFileIsKeptUnlessForced) {
  write_text(path("k"), "precious");
  script({{"genkey -o %k", 1, {"exists already"}}});
  EXPECT_EQ(read_text(path("k")), "precious");
  script({{"genkey -o %k --force"}});
  EXPECT_NE(read_text(path("k")), "precious");
}

// Digests of "abc" as RFC 1319, RFC 1321 and FIPS 180-1 publish them; the block cipher
// there and back, and not with another key; DER to PEM and back, read by OpenSSL between.
TEST_F(ToolTest, DigestsCipherAndEncodings) {
  write_text(path("abc"), "abc");
  const std::string text = std::string(1000, 'x') + "tail";
  write_text(path("plain"), text);
  const std::string key = " -k 00112233445566778899aabbccddeeff ";
  script({{"hash -a md2 %abc", 0, {")= da853b0d3f88d99b30283a69e6ded6bb\n"}},
          {"hash -a md5 %abc", 0, {")= 900150983cd24fb0d6963f7d28e17f72\n"}},
          {"hash -a sha1 %abc", 0, {")= a9993e364706816aba3e25717850c26c9cd0d89d\n"}},
          {"enc" + key + "-i %plain -o %c"},
          {"dec" + key + "-i %c -o %p"},
          {"genkey -o %k -p %pub.der --outform der"},
          {"pem -i %pub.der -l 'RSA PUBLIC KEY' -o %pub.pem"},
          {"openssl rsa -RSAPublicKey_in -in %pub.pem -noout -text", 0, {"Public-Key: (1024 bit)"}},
          {"der -i %pub.pem -o %back.der"}});
  const std::string cipher = read_text(path("c"));
  EXPECT_GE(cipher.size(), text.size());
  EXPECT_EQ(cipher.find("xxxxxxxx"), std::string::npos);
  EXPECT_EQ(read_text(path("p")), text);
  RunResult wrong = run("dec -k ff112233445566778899aabbccddeeff -i %c -o %p2");
  EXPECT_TRUE(wrong.status != 0 || read_text(path("p2")) != text);
  EXPECT_EQ(read_text(path("pub.pem")).rfind("-----BEGIN RSA PUBLIC KEY-----\r\n", 0), 0u);
  EXPECT_EQ(read_file(path("back.der")), read_file(path("pub.der")));
}

// Each refusal names what went wrong; CLI11's own refusals exit with its codes.
TEST_F(ToolTest, BadUseIsRefusedWithAReason) {
  write_text(path("plain"), "data");
  write_text(path("notpem"), "this is not base64 at all!");
  const std::pair<const char*, const char*> cases[] = {
      {"", "A subcommand is required"},
      {"frobnicate", "subcommand is required"},
      {"genkey", "--out is required"},
      {"hash -a sha256 %plain", "sha256"},
      {"hash %missing", "missing: cannot open for reading"},
      {"show %missing", "missing: cannot open for reading"},
      {"show %notpem", "notpem: not a certificate, CRL, PKCS #10 request or SPKAC"},
      {"enc -k 0011 -i %plain -o %x", "must be 16 bytes"},
      {"enc -k zz112233445566778899aabbccddeeff -i %plain -o %x", "not hexadecimal"},
      {"enc -i %plain -o %x", "give --cert or --key"},
      {"dec --keyfile %missing -i %plain -o %x", "too short for an envelope"},
      {"req -k %missing -s /CN=x", "missing: cannot read the key file"},
      {"req -k %missing -s CN=x", "must start with '/'"},
      {"req -k %missing -s /XX=x", "unknown attribute XX"},
      {"req -k %missing -s /CN=a/CN=b", "attribute given twice"},
      {"ca list %nowhere", "no authority here"},
      {"ca revoke %nowhere 12 --reason sleepy", "reason \"sleepy\""},
      {"ca revoke %nowhere abc", "serial \"abc\": not a positive number"},
      {"genkey -o %k --outform txt", "txt"},
  };
  for (auto [line, says] : cases) {
    RunResult r = run(line);
    EXPECT_NE(r.status, 0) << line;
    EXPECT_TRUE(has(r.err, says)) << line;
  }
}

}  // namespace
}  // namespace hylorn_test
