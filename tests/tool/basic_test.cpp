// The tool's key, digest, cipher and encoding commands and its argument handling, run as
// a user runs them and checked with the openssl program.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <set>

#include "tool_runner.h"

namespace hylorn_test {
namespace {

TEST(ToolHelp, EverySubcommandDocumentsItself) {
  TempDir dir;
  for (std::string cmd : {"", "genkey", "req", "ca", "ca init", "ca issue", "ca revoke", "ca crl",
                          "ca list", "show", "verify", "chain", "hash", "enc", "dec", "pem", "der"})
    run_script({{cmd + " --help", 0, {"Usage:", "--help"}}}, dir);
}

// Each key file is private, OpenSSL finds it consistent and its public half is the one
// written beside it; with a clock-seeded generator keys made in a row would be equal.
TEST(ToolKeys, KeyFilesArePrivateMatchTheirPublicKeyAndDiffer) {
  TempDir dir;
  std::set<std::string> moduli;
  for (std::string k : {"k0", "k1", "k2", "k3"}) {
    run_script({{"genkey -o %" + k + " -p %" + k + ".pub"},
                {"openssl rsa -inform DER -in %" + k + " -noout -check -text",
                 0,
                 {"RSA key ok", "Private-Key: (1024 bit, 2 primes)", "publicExponent: 65537"}}},
               dir);
    const std::string modulus =
        run_line("openssl rsa -inform DER -in %" + k + " -noout -modulus", dir).out;
    EXPECT_EQ(run_line("openssl rsa -RSAPublicKey_in -in %" + k + ".pub -noout -modulus", dir).out,
              modulus);
    moduli.insert(modulus);
    struct stat st;
    ASSERT_EQ(stat(dir.path(k).c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);
  }
  EXPECT_EQ(moduli.size(), 4u);
}

TEST(ToolKeys, ExistingKeyFileIsKeptUnlessForced) {
  TempDir dir;
  write_text(dir.path("k"), "precious");
  run_script({{"genkey -o %k", 1, {"exists already"}}}, dir);
  EXPECT_EQ(read_text(dir.path("k")), "precious");
  run_script({{"genkey -o %k --force"}}, dir);
  EXPECT_NE(read_text(dir.path("k")), "precious");
}

// Digests of "abc" as RFC 1319, RFC 1321 and FIPS 180-1 publish them; the block cipher
// there and back, and not with another key; DER to PEM and back, read by OpenSSL between.
TEST(ToolData, DigestsCipherAndEncodings) {
  TempDir dir;
  write_text(dir.path("abc"), "abc");
  const std::string text = std::string(1000, 'x') + "tail";
  write_text(dir.path("plain"), text);
  const std::string key = " -k 00112233445566778899aabbccddeeff ";
  run_script(
      {{"hash -a md2 %abc", 0, {")= da853b0d3f88d99b30283a69e6ded6bb\n"}},
       {"hash -a md5 %abc", 0, {")= 900150983cd24fb0d6963f7d28e17f72\n"}},
       {"hash -a sha1 %abc", 0, {")= a9993e364706816aba3e25717850c26c9cd0d89d\n"}},
       {"enc" + key + "-i %plain -o %c"},
       {"dec" + key + "-i %c -o %p"},
       {"genkey -o %k -p %pub.der --outform der"},
       {"pem -i %pub.der -l 'RSA PUBLIC KEY' -o %pub.pem"},
       {"openssl rsa -RSAPublicKey_in -in %pub.pem -noout -text", 0, {"Public-Key: (1024 bit)"}},
       {"der -i %pub.pem -o %back.der"}},
      dir);
  const std::string cipher = read_text(dir.path("c"));
  EXPECT_GE(cipher.size(), text.size());
  EXPECT_EQ(cipher.find("xxxxxxxx"), std::string::npos);
  EXPECT_EQ(read_text(dir.path("p")), text);
  RunResult wrong = run_line("dec -k ff112233445566778899aabbccddeeff -i %c -o %p2", dir);
  EXPECT_TRUE(wrong.status != 0 || read_text(dir.path("p2")) != text);
  EXPECT_EQ(read_text(dir.path("pub.pem")).rfind("-----BEGIN RSA PUBLIC KEY-----\r\n", 0), 0u);
  EXPECT_EQ(read_file(dir.path("back.der")), read_file(dir.path("pub.der")));
}

// Each refusal names what went wrong; CLI11's own refusals exit with its codes.
TEST(ToolArguments, BadUseIsRefusedWithAReason) {
  TempDir dir;
  write_text(dir.path("plain"), "data");
  write_text(dir.path("notpem"), "this is not base64 at all!");
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
    RunResult r = run_line(line, dir);
    EXPECT_NE(r.status, 0) << line;
    EXPECT_TRUE(has(r.err, says)) << line;
  }
}

}  // namespace
}  // namespace hylorn_test
