// The tool's key, digest, cipher and encoding commands and its argument handling, run as
// a user runs them and checked against OpenSSL.
#include <gtest/gtest.h>
#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <sys/stat.h>

#include <set>

#include "tool_runner.h"

namespace hylorn_test {
namespace {

#pragma GCC diagnostic ignored "-Wdeprecated-declarations"  // the RSA_* readers are what we need

// The modulus of a PEM RSAPublicKey, read by OpenSSL, as hex ("" if it does not parse).
std::string pem_public_modulus(const std::string& pem) {
  BIO* bio = BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size()));
  RSA* rsa = PEM_read_bio_RSAPublicKey(bio, nullptr, nullptr, nullptr);
  BIO_free(bio);
  if (!rsa) return "";
  char* h = BN_bn2hex(RSA_get0_n(rsa));
  std::string out = h;
  OPENSSL_free(h);
  EXPECT_EQ(BN_get_word(RSA_get0_e(rsa)), 65537u);
  RSA_free(rsa);
  return out;
}

TEST(ToolHelp, EverySubcommandDocumentsItself) {
  const std::vector<std::vector<std::string>> commands = {{},
                                                          {"genkey"},
                                                          {"req"},
                                                          {"ca"},
                                                          {"ca", "init"},
                                                          {"ca", "issue"},
                                                          {"ca", "revoke"},
                                                          {"ca", "crl"},
                                                          {"ca", "list"},
                                                          {"show"},
                                                          {"verify"},
                                                          {"chain"},
                                                          {"hash"},
                                                          {"enc"},
                                                          {"dec"},
                                                          {"pem"},
                                                          {"der"}};
  for (auto args : commands) {
    args.push_back("--help");
    RunResult r = run_tool(args);
    SCOPED_TRACE(testing::PrintToString(args));
    EXPECT_EQ(r.status, 0);
    EXPECT_NE(r.out.find("Usage:"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("--help"), std::string::npos);
  }
}

TEST(ToolKeys, KeyFileIsPrivateAndMatchesThePublicKey) {
  TempDir dir;
  RunResult r = run_tool({"genkey", "-o", dir.path("k"), "-p", dir.path("k.pub")});
  ASSERT_EQ(r.status, 0) << r.err;
  struct stat st;
  ASSERT_EQ(stat(dir.path("k").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);
  // The key file is the library's DER RSAPrivateKey; OpenSSL reads it independently.
  Bytes der = read_file(dir.path("k"));
  const unsigned char* p = der.data();
  RSA* rsa = d2i_RSAPrivateKey(nullptr, &p, static_cast<long>(der.size()));
  ASSERT_NE(rsa, nullptr);
  EXPECT_EQ(RSA_check_key(rsa), 1);
  EXPECT_EQ(RSA_bits(rsa), 1024);
  char* n = BN_bn2hex(RSA_get0_n(rsa));
  EXPECT_EQ(pem_public_modulus(read_text(dir.path("k.pub"))), n);
  OPENSSL_free(n);
  RSA_free(rsa);
}

// With the clock-seeded generator, keys made within the same second are equal.
TEST(ToolKeys, KeysMadeInARowDiffer) {
  TempDir dir;
  std::set<std::string> moduli;
  for (int i = 0; i < 4; ++i) {
    RunResult r = run_tool({"genkey", "-o", dir.path("k" + std::to_string(i))});
    ASSERT_EQ(r.status, 0) << r.err;
    moduli.insert(pem_public_modulus(r.out));
  }
  EXPECT_EQ(moduli.size(), 4u);
  EXPECT_EQ(moduli.count(""), 0u);
}

TEST(ToolKeys, ExistingKeyFileIsKeptUnlessForced) {
  TempDir dir;
  write_text(dir.path("k"), "precious");
  RunResult r = run_tool({"genkey", "-o", dir.path("k")});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("exists already"), std::string::npos) << r.err;
  EXPECT_EQ(read_text(dir.path("k")), "precious");
  r = run_tool({"genkey", "-o", dir.path("k"), "--force"});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_NE(read_text(dir.path("k")), "precious");
}

TEST(ToolHash, PublishedDigestsOfAbc) {
  struct Case {
    const char* alg;
    const char* digest;  // RFC 1319, RFC 1321, FIPS 180-1
  };
  const Case cases[] = {{"md2", "da853b0d3f88d99b30283a69e6ded6bb"},
                        {"md5", "900150983cd24fb0d6963f7d28e17f72"},
                        {"sha1", "a9993e364706816aba3e25717850c26c9cd0d89d"}};
  TempDir dir;
  write_text(dir.path("abc"), "abc");
  for (const Case& c : cases) {
    RunResult r = run_tool({"hash", "-a", c.alg, dir.path("abc")});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find(std::string(")= ") + c.digest), std::string::npos) << c.alg << r.out;
  }
}

TEST(ToolCipher, SymmetricRoundTripAndWrongKey) {
  TempDir dir;
  std::string text(1000, 'x');
  text += "tail";
  write_text(dir.path("plain"), text);
  const std::string key = "00112233445566778899aabbccddeeff";
  ASSERT_EQ(run_tool({"enc", "-k", key, "-i", dir.path("plain"), "-o", dir.path("c")}).status, 0);
  std::string cipher = read_text(dir.path("c"));
  EXPECT_GE(cipher.size(), text.size());
  EXPECT_EQ(cipher.find("xxxxxxxx"), std::string::npos);
  ASSERT_EQ(run_tool({"dec", "-k", key, "-i", dir.path("c"), "-o", dir.path("p")}).status, 0);
  EXPECT_EQ(read_text(dir.path("p")), text);
  RunResult wrong = run_tool(
      {"dec", "-k", "ff112233445566778899aabbccddeeff", "-i", dir.path("c"), "-o", dir.path("p2")});
  EXPECT_TRUE(wrong.status != 0 || read_text(dir.path("p2")) != text);
}

TEST(ToolEncoding, DerToPemAndBack) {
  TempDir dir;
  ASSERT_EQ(run_tool({"genkey", "-o", dir.path("k"), "-p", dir.path("pub.der"), "--outform", "der"})
                .status,
            0);
  RunResult pem = run_tool({"pem", "-i", dir.path("pub.der"), "-l", "RSA PUBLIC KEY"});
  ASSERT_EQ(pem.status, 0) << pem.err;
  EXPECT_EQ(pem.out.rfind("-----BEGIN RSA PUBLIC KEY-----", 0), 0u) << pem.out;
  EXPECT_FALSE(pem_public_modulus(pem.out).empty());
  write_text(dir.path("pub.pem"), pem.out);
  ASSERT_EQ(run_tool({"der", "-i", dir.path("pub.pem"), "-o", dir.path("back.der")}).status, 0);
  EXPECT_EQ(read_file(dir.path("back.der")), read_file(dir.path("pub.der")));
}

// Each refusal names what went wrong; CLI11's own refusals exit with its codes.
TEST(ToolArguments, BadUseIsRefusedWithAReason) {
  TempDir dir;
  write_text(dir.path("plain"), "data");
  write_text(dir.path("notpem"), "this is not base64 at all!");
  struct Case {
    std::vector<std::string> args;
    const char* says;
  };
  const std::vector<Case> cases = {
      {{}, "A subcommand is required"},
      {{"frobnicate"}, "subcommand is required"},
      {{"genkey"}, "--out is required"},
      {{"hash", "-a", "sha256", dir.path("plain")}, "sha256"},
      {{"hash", dir.path("missing")}, "missing: cannot open for reading"},
      {{"show", dir.path("missing")}, "missing: cannot open for reading"},
      {{"show", dir.path("notpem")}, "notpem: not a certificate, CRL, PKCS #10 request or SPKAC"},
      {{"enc", "-k", "0011", "-i", dir.path("plain"), "-o", dir.path("x")}, "must be 16 bytes"},
      {{"enc", "-k", "zz112233445566778899aabbccddeeff", "-i", dir.path("plain"), "-o",
        dir.path("x")},
       "not hexadecimal"},
      {{"enc", "-i", dir.path("plain"), "-o", dir.path("x")}, "give --cert or --key"},
      {{"dec", "--keyfile", dir.path("missing"), "-i", dir.path("plain"), "-o", dir.path("x")},
       "too short for an envelope"},
      {{"req", "-k", dir.path("missing"), "-s", "/CN=x"}, "missing: cannot read the key file"},
      {{"req", "-k", dir.path("missing"), "-s", "CN=x"}, "must start with '/'"},
      {{"req", "-k", dir.path("missing"), "-s", "/XX=x"}, "unknown attribute XX"},
      {{"req", "-k", dir.path("missing"), "-s", "/CN=a/CN=b"}, "attribute given twice"},
      {{"ca", "list", dir.path("nowhere")}, "no authority here"},
      {{"ca", "revoke", dir.path("nowhere"), "12", "--reason", "sleepy"}, "reason \"sleepy\""},
      {{"ca", "revoke", dir.path("nowhere"), "abc"}, "serial \"abc\": not a positive number"},
      {{"genkey", "-o", dir.path("k"), "--outform", "txt"}, "txt"},
  };
  for (const Case& c : cases) {
    RunResult r = run_tool(c.args);
    SCOPED_TRACE(testing::PrintToString(c.args));
    EXPECT_NE(r.status, 0);
    EXPECT_NE(r.err.find(c.says), std::string::npos) << r.err;
  }
}

}  // namespace
}  // namespace hylorn_test
