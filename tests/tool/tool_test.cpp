// The hylorn tool end to end, run as a user runs it: what it writes is read back by the
// openssl and certtool programs and by SQLite (the authority's database); bad input is
// refused with a reason and without touching the authority, and a killed issue leaves it
// consistent.
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <cstdio>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "support/hex.h"
#include "support/temp_dir.h"

namespace hylorn_test {
namespace {

namespace fs = std::filesystem;

struct RunResult {
  int status = -1;  // exit code, or 128 + signal
  std::string out, err;
};

// Whether text holds part, showing the text when it does not.
testing::AssertionResult has(const std::string& text, const std::string& part) {
  if (text.find(part) != std::string::npos) return testing::AssertionSuccess();
  return testing::AssertionFailure() << "no \"" << part << "\" in:\n" << text;
}

std::string read_text(const std::string& path) {
  const Bytes b = read_file(path);
  return std::string(b.begin(), b.end());
}
void write_text(const std::string& path, const std::string& text) {
  write_file(path, bytes_of(text));
}

// One step of a scenario: a command line, the status it must end with and texts that its
// standard output and error together must hold.
struct Step {
  std::string line;
  int status = 0;
  std::vector<std::string> says = {};
};

// A scratch folder for the command lines, in which each "%" stands for the folder.
class ToolTest : public testing::Test {
 protected:
  std::string path(const std::string& name) const { return dir.path(name); }
  // The line through the shell: hylorn, or openssl or certtool when the line starts with
  // that name (those read our outputs independently); env is NAME=value words.
  RunResult run(std::string line, const std::string& env = "") {
    for (std::size_t at = 0; (at = line.find('%', at)) != std::string::npos;)
      line.replace(at, 1, dir.path(""));
    if (line.rfind("openssl ", 0) != 0 && line.rfind("certtool ", 0) != 0)
      line = HYLORN_TOOL " " + line;
    FILE* pipe = popen((env + " " + line + " 2>" + path(".stderr")).c_str(), "r");
    RunResult r;
    char buf[4096];
    for (std::size_t n; (n = fread(buf, 1, sizeof buf, pipe)) > 0;) r.out.append(buf, n);
    const int w = pclose(pipe);
    r.status = WIFEXITED(w) ? WEXITSTATUS(w) : 128 + WTERMSIG(w);
    r.err = read_text(path(".stderr"));
    return r;
  }
  void script(const std::vector<Step>& steps) {
    for (const Step& s : steps) {
      RunResult r = run(s.line);
      EXPECT_EQ(r.status, s.status) << s.line << "\n" << r.out << r.err;
      for (const std::string& text : s.says) EXPECT_TRUE(has(r.out + r.err, text)) << s.line;
    }
  }
  TempDir dir;
};

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
  const std::string k0 = read_text(path("k0"));  // kept unless forced
  script({{"genkey -o %k0", 1, {"exists already"}}});
  EXPECT_EQ(read_text(path("k0")), k0);
  script({{"genkey -o %k0 --force"}});
  EXPECT_NE(read_text(path("k0")), k0);
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

// The first column of each row the query gives.
std::vector<std::string> query(const std::string& db_path, const std::string& sql) {
  sqlite3* db = nullptr;
  sqlite3_stmt* st = nullptr;
  std::vector<std::string> out;
  EXPECT_EQ(sqlite3_open_v2(db_path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr), SQLITE_OK);
  EXPECT_EQ(sqlite3_prepare_v2(db, sql.c_str(), -1, &st, nullptr), SQLITE_OK) << sql;
  while (sqlite3_step(st) == SQLITE_ROW) {
    const unsigned char* text = sqlite3_column_text(st, 0);
    out.push_back(text ? reinterpret_cast<const char*>(text) : "");
  }
  sqlite3_finalize(st);
  sqlite3_close(db);
  return out;
}

// ---- a root CA and a request, made once per test ----

class CaTest : public ToolTest {
 protected:
  void SetUp() override {
    script({{"ca init %root --subj '/C=CN/O=Hylorn Test/CN=Test Root' --days 3650"},
            {"genkey -o %user.key -p %user.pub"},
            {"req -k %user.key -s '/C=CN/O=Hylorn Test/CN=user' -o %user.req"}});
  }
  std::string db(const std::string& ca, const std::string& sql) {
    std::vector<std::string> rows = query(path(ca + "/ca.db"), sql);
    return rows.empty() ? "(no row)" : rows[0];
  }
  // Certificates the authority holds: its database rows and its certs folder.
  void expect_consistent(const std::string& ca) {
    EXPECT_EQ(db(ca, "PRAGMA integrity_check"), "ok");
    const long long next = std::stoll(db(ca, "SELECT next_serial FROM authority"));
    std::set<long long> recorded;
    for (const std::string& row :
         query(path(ca + "/ca.db"), "SELECT serial || ' ' || status FROM certificates")) {
      const long long serial = std::stoll(row);
      EXPECT_LT(serial, next) << "serial " << serial << " could be given again";
      EXPECT_EQ(row.find("pending"), std::string::npos) << row << " left unsettled";
      if (row.find("valid") == std::string::npos && row.find("revoked") == std::string::npos)
        continue;
      recorded.insert(serial);
      const std::string file = ca + "/certs/" + std::to_string(serial) + ".pem";
      EXPECT_EQ(run("der -i %" + file + " -o %tmp.der").status, 0);
      EXPECT_EQ(to_hex(read_file(path("tmp.der"))),
                db(ca, "SELECT lower(hex(der)) FROM certificates WHERE serial = " +
                           std::to_string(serial)))
          << file;
    }
    for (const auto& e : fs::directory_iterator(path(ca + "/certs"))) {
      const std::string name = e.path().filename();
      if (name.find(".tmp-") != std::string::npos) continue;  // never renamed: not handed out
      EXPECT_EQ(recorded.count(std::stoll(name)), 1u) << name << " handed out but not recorded";
    }
  }
};

// The same chain read by the tool, by openssl and by certtool: signatures, serials,
// names, extensions, the CRL and its use in verification; then each way a chain can be
// wrong, found by the tool in words and by openssl verify.
TEST_F(CaTest, ChainsAgreeWithOpenSSLAndCerttool) {
  const std::string subject =
      "/C=CN/O=Org/OU=Unit/ST=State/CN=www.example.com/L=City/title=Title/SN=Sur/GN=Given/"
      "initials=I/emailAddress=a@example.com/postalAddress=Street 1/postalCode=100000/"
      "postOfficeBox=42/telephoneNumber=+86 10 1234/telexNumber=777";
  // All sixteen name slots arrive, each under its attribute type.
  Step names{"openssl x509 -noout -subject -nameopt sep_multiline,sname,utf8 -in %server.pem"};
  for (size_t at = 1, end; at < subject.size(); at = end + 1) {
    end = std::min(subject.find('/', at), subject.size());
    names.says.push_back("\n    " + subject.substr(at, end - at) + "\n");
  }
  const std::string trust =
      "openssl verify -auth_level 0 -check_ss_sig -CAfile %root/ca.pem -untrusted %inter.pem";
  const std::string crls = " -crl_check_all -CRLfile %inter.crl -CRLfile %root.crl";
  // clang-format off
  script({
      {"genkey -o %inter.key"},
      {"req -k %inter.key -s '/C=CN/O=Hylorn Test/CN=Test Intermediate' -o %inter.req"},
      {"ca issue %root -i %inter.req --ca --pathlen 0 --policy 1.2.3.4=https://cps.example/ -o "
       "%inter.pem"},
      {"ca init %inter --key %inter.key --cert %inter.pem"},
      {"genkey -o %server.key"},
      {"req -k %server.key -o %server.req -s '" + subject + "'"},
      {"ca issue %inter -i %server.req -o %server.pem"},
      {"ca issue %inter -i %server.req -o %old.pem"},
      {"ca revoke %inter 2 --reason keyCompromise"},
      {"ca crl %inter -o %inter.crl"},
      {"ca crl %root -o %root.crl"},
      {"openssl x509 -noout -text -in %root/ca.pem", 0, {"Serial Number: 1 (0x1)"}},
      {"openssl x509 -noout -text -in %inter.pem", 0,
       {"Serial Number: 2 (0x2)", "Issuer: C = CN, O = Hylorn Test, CN = Test Root",
        "CA:TRUE, pathlen:0", "Key Usage: critical\n                Certificate Sign, CRL Sign\n",
        "Policy: 1.2.3.4\n                  CPS: https://cps.example/"}},
      {"openssl x509 -noout -text -in %server.pem", 0,
       {"Serial Number: 1 (0x1)", "Issuer: C = CN, O = Hylorn Test, CN = Test Intermediate",
        "Digital Signature, Key Encipherment\n", "serial:02\n"}},
      names,
      {"certtool -i --infile %inter.pem", 0, {"Path Length Constraint: 0", "serial: 01"}},
      {"openssl crl -noout -text -in %inter.crl", 0, {"Serial Number: 02\n", "Key Compromise",
        "Issuer: C = CN, O = Hylorn Test, CN = Test "
        "Intermediate"}},
      {"openssl crl -noout -crlnumber -CAfile %inter.pem -in %inter.crl", 0,
       {"verify OK", "crlNumber=0x01"}},
      // OpenSSL and the tool agree on the chain: the server is good, the old one revoked.
      {trust + " %server.pem", 0, {"server.pem: OK"}},
      {trust + crls + " %server.pem", 0, {"server.pem: OK"}},
      {trust + crls + " %old.pem", 2, {"certificate revoked"}},
      {"verify %server.pem -r %root/ca.pem -u %inter.pem -c %inter.crl -c %root.crl", 0,
       {"OK, a chain of 3"}},
      {"verify %old.pem -r %root/ca.pem -u %inter.pem -c %inter.crl", 1,
       {"was revoked", "reason keyCompromise"}},
      // The next CRL takes the next number.
      {"ca crl %inter -o %inter2.crl"},
      {"openssl crl -noout -crlnumber -in %inter2.crl", 0, {"crlNumber=0x02"}},
  });
  // clang-format on
  EXPECT_EQ(db("inter", "SELECT group_concat(serial || ':' || status, ' ') FROM certificates"),
            "1:valid 2:revoked");
  EXPECT_EQ(db("inter", "SELECT reason FROM revocations WHERE serial = 2"), "1");
  EXPECT_EQ(db("inter", "SELECT next_serial FROM authority"), "3");
  expect_consistent("inter");
  expect_consistent("root");

  for (auto [parent, name, extra] : {std::tuple{"inter", "sub", ""},
                                     {"root", "nosign", " --key-usage digitalSignature,cRLSign"}}) {
    const std::string n = name, p = parent;
    script({{"genkey -o %" + n + ".key"},
            {"req -k %" + n + ".key -s '/O=Hylorn Test/CN=" + n + "' -o %" + n + ".req"},
            {"ca issue %" + p + " -i %" + n + ".req --ca -o %" + n + ".pem" + extra},
            {"ca init %" + n + " --key %" + n + ".key --cert %" + n + ".pem"}});
  }
  script({{"ca issue %sub -i %user.req -o %deep.pem"},
          {"ca issue %nosign -i %user.req -o %unsigned.pem"},
          {"ca init %impostor --subj '/C=CN/O=Hylorn Test/CN=Test Root'"}});
  const std::string theirs = "openssl verify -auth_level 0 -CAfile %";
  // clang-format off
  script({
      {"verify %server.pem -r %root/ca.pem -u %inter.pem --at 20991231000000", 1, {"has expired"}},
      {theirs + "root/ca.pem -untrusted %inter.pem -attime 4102358400 %server.pem", 2,
       {"certificate has expired"}},
      {"verify %server.pem -r %root/ca.pem -u %inter.pem --at 20000101000000", 1,
       {"is not yet valid"}},
      {theirs + "root/ca.pem -untrusted %inter.pem -attime 946684800 %server.pem", 2,
       {"certificate is not yet valid"}},
      {"verify %deep.pem -r %root/ca.pem -u %inter.pem -u %sub.pem", 1,
       {"\"Test Intermediate\" allows 0 CA(s) below it, the chain has 1"}},
      {theirs + "root/ca.pem -untrusted %inter.pem -untrusted %sub.pem %deep.pem", 2,
       {"path length constraint exceeded"}},
      {"verify %unsigned.pem -r %root/ca.pem -u %nosign.pem", 1, {"\"nosign\" lacks keyCertSign"}},
      {theirs + "root/ca.pem -untrusted %nosign.pem %unsigned.pem", 2, {"invalid CA certificate"}},
      {"verify %server.pem -r %impostor/ca.pem -u %inter.pem", 1,
       {"by the key of \"Test Root\" does not verify"}},
      {theirs + "impostor/ca.pem -untrusted %inter.pem %server.pem", 2,
       {"certificate signature failure"}},
      {"verify %server.pem -r %root/ca.pem", 1, {"the chain does not reach a trusted root"}},
      {theirs + "root/ca.pem %server.pem", 2, {"unable to get local issuer certificate"}},
  });
  // clang-format on
}

// Without a request: subject and public key from the command line, under each digest
// (OpenSSL 3 no longer has MD2, so only the tool checks that signature).
TEST_F(CaTest, IssueFromFlagsUnderEachDigest) {
  const std::string modulus = run("openssl rsa -inform DER -in %user.key -noout -modulus").out;
  ASSERT_EQ(modulus.rfind("Modulus=", 0), 0u);
  for (auto [md, name] : {std::pair{"sha1", "sha1WithRSA\n"},
                          {"md5", "md5WithRSAEncryption"},
                          {"md2", "md2WithRSAEncryption"}}) {
    const std::string out = std::string("%flags-") + md + ".pem";
    script({{"ca issue %root --subj '/O=Flags/CN=from flags' --pubkey %user.pub --md " +
             std::string(md) + " -o " + out},
            {"verify " + out + " -r %root/ca.pem", 0, {"OK, a chain of 2"}},
            {"openssl x509 -noout -modulus -subject -text -in " + out,
             0,
             {modulus, "subject=O = Flags, CN = from flags\n", name}}});
  }
  script({{"openssl verify -auth_level 0 -CAfile %root/ca.pem %flags-sha1.pem %flags-md5.pem",
           0,
           {"flags-sha1.pem: OK", "flags-md5.pem: OK"}}});
}

// show names every part of what we make and of what OpenSSL's req command makes, and
// verify accepts OpenSSL's self-signed certificate as its own root. The library reads
// PrintableString, TeletexString, IA5String and BMPString names but not UTF8String, which most
// tools write today: show says so with the certificate decoder's own list.
TEST_F(CaTest, ShowNamesEveryPart) {
  for (std::string mask : {"default", "utf8only"}) {  // PrintableString, UTF8String names
    write_text(path("req.cnf"), "[req]\ndistinguished_name=dn\nstring_mask=" + mask + "\n[dn]\n");
    script(
        {{"openssl req -new -x509 -config %req.cnf -key %user.key -keyform DER -sha1 -subj "
          "'/C=CN/CN=OpenSSL Made/postalCode=100080' -set_serial 0x1234 -days 8000 -addext "
          "basicConstraints=critical,CA:TRUE,pathlen:3 -addext keyUsage=critical,"
          "digitalSignature,keyCertSign -addext subjectKeyIdentifier=none -outform DER -out %" +
          mask + ".der"}});
  }
  const std::string text = "a message for the holder of user.key\n";
  write_text(path("plain"), text);
  // OpenSSL's SPKAC, and one whose signature has a bit changed.
  script({{"openssl spkac -key %user.key -challenge challenge-1 -out %good.spkac"}});
  std::string forged = read_text(path("good.spkac"));
  char& c = forged[forged.size() - 10];
  c = c == 'A' ? 'B' : 'A';
  write_text(path("forged.spkac"), forged);
  // clang-format off
  script({
      {"ca issue %root -i %user.req -o %user.pem --key-usage digitalSignature,nonRepudiation "
       "--policy 1.3.6.1.4.1.99.1 --not-before 20200101000000 --not-after 20491231235959"},
      {"ca revoke %root 2 --reason superseded"},
      {"ca crl %root -o %root.crl"},
      {"show %user.pem", 0,
       {"Certificate:", "Serial number: 2", "Issuer: C=CN, O=Hylorn Test, CN=Test Root",
        "Subject: C=CN, O=Hylorn Test, CN=user", "Public key: RSA, 1024 bit",
        "Not before: 2020-01-01 00:00:00 UTC", "Not after:  2049-12-31 23:59:59 UTC",
        "Key usage (critical): digitalSignature, nonRepudiation",
        "Basic constraints (critical): CA FALSE", "Policy 1.3.6.1.4.1.99.1", "Authority serial: 1",
        "Signature algorithm: sha1WithRSAEncryption"}},
      {"show %root.crl", 0,
       {"Certificate revocation list:", "Serial 2 (0x02)", "reason superseded", "CRL number: 1"}},
      {"show %user.req", 0,
       {"Certificate request (PKCS #10):", "Subject: C=CN, O=Hylorn Test, CN=user",
        "Signature: valid"}},
      {"show %default.der", 0, {"Version: 3 (0x2)", "Serial number: 4660 (0x1234)",
        "Issuer: C=CN, CN=OpenSSL Made, postalCode=100080", "Public key: RSA, 1024 bit",
        "Key usage (critical): digitalSignature, keyCertSign",
        "Basic constraints (critical): CA TRUE, path length 3",
        "Signature algorithm: sha1WithRSAEncryption"}},
      {"verify %default.der -r %default.der", 0},
      {"show %utf8only.der", 1, {"it looks like a certificate (Crypt_Decode_Cert), which says\n"
        "  func_no = 208 err_no = 12 err_msg = type error"}},
      {"show %good.spkac", 0,
       {"Netscape certificate request (SPKAC):", "Challenge: \"challenge-1\"", "Signature: valid"}},
      {"show %forged.spkac", 0, {"Signature: invalid"}},
      // The chain outputs are what OpenSSL reads as a PKCS #7 chain, the certificate first.
      {"chain %user.pem %root/ca.pem --pkcs7 -o %chain.p7b"},
      {"openssl pkcs7 -print_certs -noout -in %chain.p7b", 0,
       {"subject=C = CN, O = Hylorn Test, CN = user\nissuer=C = CN, O = Hylorn Test, CN = Test "
        "Root\n\nsubject=C = CN, O = Hylorn Test, CN = Test Root\n"}},
      // An envelope to the certificate opens only with its key.
      {"enc --cert %user.pem -i %plain -o %envelope"},
      {"dec --keyfile %user.key -i %envelope -o %opened"},
      {"dec --keyfile %root/ca.key -i %envelope -o %wrong", 1, {"opening the envelope with"}},
  });
  // clang-format on
  EXPECT_GE(read_text(path("envelope")).size(), 128 + text.size());
  EXPECT_EQ(read_text(path("opened")), text);
  EXPECT_FALSE(fs::exists(path("wrong")));
}

// Bad input is refused with the file, option or step named (CLI11's own refusals exit with
// its codes), and the authority is untouched.
TEST_F(CaTest, RefusalsLeaveTheAuthorityAlone) {
  // A request whose signature was made by another key: user.req's body with other.req's
  // signature (both are MD5 with RSA over 1024 bits, so the last 128 octets).
  script({{"genkey -o %other.key"},
          {"req -k %other.key -s '/C=CN/O=Hylorn Test/CN=user' -o %other.req --outform der"},
          {"der -i %user.req -o %user.der"},
          {"der -i %root/ca.pem -o %cert.der"},
          {"ca issue %root -i %user.req -o %user.pem"},
          {"ca revoke %root 0x02"}});
  Bytes forged = read_file(path("user.der")), other = read_file(path("other.req"));
  std::copy(other.end() - 128, other.end(), forged.end() - 128);
  write_file(path("forged.der"), forged);
  Bytes cert = read_file(path("cert.der"));  // a certificate cut short
  write_file(path("truncated.der"), Bytes(cert.begin(), cert.begin() + cert.size() / 2));
  write_text(path("notpem"), "this is not base64 at all!");
  const std::string before = read_text(path("root/ca.db"));
  // clang-format off
  script({
      {"", 106, {"A subcommand is required"}},
      {"frobnicate", 106, {"subcommand is required"}},
      {"genkey", 106, {"--out is required"}},
      {"genkey -o %k --outform txt", 105, {"txt"}},
      {"hash -a sha256 %notpem", 105, {"sha256"}},
      {"hash %missing", 1, {"missing: cannot open for reading"}},
      {"show %missing", 1, {"missing: cannot open for reading"}},
      {"show %notpem", 1, {"notpem: not a certificate, CRL, PKCS #10 request or SPKAC"}},
      {"enc -k 0011 -i %notpem -o %x", 1, {"must be 16 bytes"}},
      {"enc -k zz112233445566778899aabbccddeeff -i %notpem -o %x", 1, {"not hexadecimal"}},
      {"enc -i %notpem -o %x", 1, {"give --cert or --key"}},
      {"dec --keyfile %missing -i %notpem -o %x", 1, {"too short for an envelope"}},
      {"req -k %missing -s /CN=x", 1, {"missing: cannot read the key file"}},
      {"req -k %missing -s CN=x", 1, {"must start with '/'"}},
      {"req -k %missing -s /XX=x", 1, {"unknown attribute XX"}},
      {"req -k %missing -s /CN=a/CN=b", 1, {"attribute given twice"}},
      {"ca list %nowhere", 1, {"no authority here"}},
      {"ca revoke %nowhere 12 --reason sleepy", 1, {"reason \"sleepy\""}},
      {"ca revoke %nowhere abc", 1, {"serial \"abc\": not a positive number"}},
      {"ca issue %root -i %missing.req", 1, {"missing.req: cannot open for reading"}},
      {"ca issue %root -i %forged.der", 1, {"forged.der: request signature invalid"}},
      {"ca issue %root -i %user.req --not-after 20271332000000", 1,
       {"--not-after \"20271332000000\": not a time"}},
      {"ca issue %root -i %user.req --not-before 2027", 1, {"not a time"}},
      {"ca issue %root -i %user.req --not-before 20300101000000 --not-after 20290101000000", 1,
       {"--not-after must be after --not-before"}},
      {"ca issue %root -i %user.req --pathlen 0", 1, {"only a CA certificate"}},
      {"ca issue %root -i %user.req --key-usage everything", 1, {"\"everything\": unknown"}},
      {"ca issue %root -i %user.req --policy 1.x", 1, {"\"1.x\": not a dotted number"}},
      {"ca issue %root -i %user.req --subj /CN=x", 1, {"not both"}},
      {"ca revoke %root 1 --reason boredom", 1, {"reason \"boredom\": unknown"}},
      {"ca revoke %root 99", 1, {"serial 99 was never issued by this authority"}},
      {"ca revoke %root 2", 1, {"serial 2 is revoked already"}},
      {"ca revoke %root 1 --date yesterday", 1, {"not a time"}},
      {"ca init %root --subj /CN=again", 1, {"an authority exists here already"}},
      {"ca init %sub --key %other.key --cert %root/ca.pem", 1, {"other.key: wrong CA key"}},
      {"verify %truncated.der -r %root/ca.pem", 1,
       {"truncated.der: not a certificate the library can read (Crypt_Decode_Cert)\n  func_no = "}},
      {"show %truncated.der", 1, {"truncated.der: not a certificate, CRL"}},
  });
  // clang-format on
  EXPECT_EQ(read_text(path("root/ca.db")), before);
  EXPECT_FALSE(fs::exists(path("sub/ca.db")));
  EXPECT_EQ(db("root", "SELECT next_serial || ' ' || count(*) FROM authority, certificates"),
            "3 2");
  expect_consistent("root");
}

// A damaged authority is refused before anything is signed or recorded, and the damaged
// file is left as it is: a key that is not the certificate's, a database that is not one.
// An init killed before its database was in place leaves no authority: a second init
// replaces what it left and succeeds.
TEST_F(CaTest, DamagedOrHalfMadeAuthority) {
  script({{"genkey -o %stranger.key"}});
  const std::string garbage(4096, 'z'), not_db = "ca.db: setting up the connection (file is not";
  const std::tuple<const char*, std::string, const char*, std::string> cases[] = {
      {"root/ca.key", read_text(path("stranger.key")), "ca issue %root -i %user.req",
       "ca.key: wrong CA key"},
      {"root/ca.db", garbage, "ca list %root", not_db},
      {"root/ca.db", garbage, "ca issue %root -i %user.req", not_db},
  };
  for (const auto& [file, damage, line, says] : cases) {
    const std::string kept = read_text(path(file));
    write_text(path(file), damage);
    script({{line, 1, {says}}});
    EXPECT_EQ(read_text(path(file)), damage) << line;
    write_text(path(file), kept);
  }
  EXPECT_EQ(db("root", "SELECT next_serial FROM authority"), "2");
  fs::create_directories(path("again/certs"));
  write_text(path("again/ca.key"), "half a key");
  write_text(path("again/ca.db.new"), "half a database");
  script({{"ca list %again", 1, {"no authority here"}},
          {"ca init %again --subj /CN=Again"},
          {"ca list %again", 0, {"authority: CN=Again"}}});
  struct stat st;
  ASSERT_EQ(stat(path("again/ca.key").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);
  expect_consistent("again");
}

// ---- a killed issue ----

// The point the issue is killed at, and the status of serial 2 after the next command has
// settled it ("" = no row).
class CaCrashTest : public CaTest,
                    public testing::WithParamInterface<std::pair<const char*, std::string>> {};

TEST_P(CaCrashTest, KilledIssueLeavesAConsistentAuthority) {
  const auto& [point, status_of_serial_2] = GetParam();
  RunResult killed =
      run("ca issue %root -i %user.req -o %lost.pem", std::string("HYLORN_TEST_CRASH_AT=") + point);
  ASSERT_EQ(killed.status, 86) << killed.err;  // it did stop at the point
  EXPECT_FALSE(fs::exists(path("lost.pem")));
  EXPECT_EQ(db("root", "PRAGMA integrity_check"), "ok");
  script({{"ca list %root"}});  // settles what was left pending
  expect_consistent("root");
  EXPECT_EQ(db("root", "SELECT coalesce((SELECT status FROM certificates WHERE serial = 2), '')"),
            status_of_serial_2);
  // The next issue takes a serial that was never handed out.
  script({{"ca issue %root -i %user.req -o %next.pem",
           0,
           {status_of_serial_2.empty() ? "issued certificate 2" : "issued certificate 3"}}});
  expect_consistent("root");
  if (status_of_serial_2 != "void") return;
  // An issue still running when another command settled its record as void writes its
  // file afterwards: the next command sees the file and records the certificate as issued.
  write_file(path("late.der"),
             from_hex(db("root", "SELECT hex(der) FROM certificates WHERE serial = 2")));
  script({{"pem -i %late.der -o %root/certs/2.pem"},
          {"ca list %root", 0, {"certificate 2 of an interrupted issue is recorded as issued"}}});
  expect_consistent("root");
  EXPECT_EQ(db("root", "SELECT status FROM certificates WHERE serial = 2"), "valid");
}

INSTANTIATE_TEST_SUITE_P(
    Points, CaCrashTest,
    testing::Values(std::pair{"issue-signed", ""},         // before the record: rolled back
                    std::pair{"issue-recorded", ""},       // recorded, before COMMIT
                    std::pair{"issue-commit", ""},         // inside SQLite's COMMIT
                    std::pair{"issue-committed", "void"},  // reserved, never handed out
                    std::pair{"issue-written", "valid"},   // handed out, not yet marked
                    std::pair{"issue-final-commit", "valid"}));

}  // namespace
}  // namespace hylorn_test
