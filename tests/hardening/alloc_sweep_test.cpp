// Every exported function that allocates, run with its 1st, 2nd, ... allocation failing
// until a run allocates no more: each failed run answers the function's own failure result,
// names the allocation failure in the error list where the function reports through it,
// and leaves nothing allocated (the sanitizer build checks that) and nothing half-built.
//
// Measured to allocate nothing, so not listed: Crypt_Get_Err, Crypt_Get_Soft_Version,
// Crypt_InitEnvironment, Crypt_ClearEnvironment, Crypt_GetBMPTable, Crypt_Char2Int,
// Crypt_Int2Char, Crypt_Gen_Hash, Crypt_Gen_Encoded_Hash, Crypt_Gen_RandomBytes,
// Crypt_Enc_Data_S, Crypt_Dec_Data_S and Crypt_Gen_Ie_Cert_Chain (a row for any of them
// fails). The CRL calls run as whole sessions.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "api_fixtures.h"
#include "support/fail_malloc.h"

namespace hardening_test {
namespace {

const auto n = [](const Bytes& b) { return unsigned(b.size()); };

// The inputs, made once through the public functions.
struct Inputs {
  const KeyFile& key = library_key();
  Bytes cert, crl, request, netscape;
  std::string pem;
  Bytes sig = Bytes(HYLORN_RSA_BLOCK_SIZE), byPri = Bytes(HYLORN_RSA_BLOCK_SIZE),
        byPub = Bytes(HYLORN_RSA_BLOCK_SIZE), sealed = Bytes(512);
  const Bytes data = bytes_of("allocation failure sweep");
  Inputs() {
    unsigned got = 0;
    x509_test::encode_cert(cert_input(key, "Sweep"), &cert);
    crl = crl_test::encode(crl_input(key, {revoked(1, 2), revoked(3, 4)}));
    request = request_test::encode(request_test::named("Sweep"), key.pub, key.path);
    netscape = request_test::spkac(key.pub, tlv(0x16, bytes_of("challenge")));
    pem.resize(2 * cert.size() + 256);
    DER2PEM_data_format(cert.data(), n(cert), pem.data(), &got, "-----B-----", "-----E-----");
    pem.resize(got);
    Crypt_Gen_Signature(3, key.path.c_str(), "", data.data(), n(data), sig.data(), &got);
    Crypt_Asyn_Enc_Data_By_Prikey(data.data(), n(data), byPri.data(), &got, pri(), n(key.pri));
    Crypt_Asyn_Enc_Data_By_Pubkey(data.data(), n(data), byPub.data(), &got, pub(), n(key.pub));
    Crypt_Enc_Data(data.data(), n(data), sealed.data(), &got, pub(), n(key.pub));
    sealed.resize(got);
  }
  const u8* pub() const { return key.pub.data(); }
  const u8* pri() const { return key.pri.data(); }
};
const Inputs& in() {
  static const Inputs inputs;
  return inputs;
}

// Room for any output of any row.
u8 out[HYLORN_PKCS7_CHAIN_SIZE + HYLORN_CERT_DER_SIZE];
u8 field[8][HYLORN_RSA_BLOCK_SIZE];
unsigned len, len2, word[8];

// What a run with a failed allocation leaves in the error list.
enum Report { kNamed, kEmpty, kUnread };  // an entry saying "malloc" or "memory"; nothing; any

using In = const Inputs&;
struct Row {
  const char* name;
  std::vector<long> failed;  // what a run with a failed allocation may answer
  Report report;
  std::function<long(In)> call;
};

// clang-format off
const Row kRows[] = {
  {"DER2PEM", {1}, kEmpty, [](In i) {
     char* pem = reinterpret_cast<char*>(out);
     return DER2PEM_data_format(i.cert.data(), n(i.cert), pem, &len, "B", "E"); }},
  {"PEM2DER", {1}, kEmpty, [](In i) {
     return PEM2DER_data_format(i.pem.c_str(), int(i.pem.size()), out, &len); }},
  {"DecodePubkeyInfo", {-1}, kNamed, [](In i) {
     return Crypt_Decode_Pubkey_Info(i.pub(), int(n(i.key.pub)), word, field[0], field[1]); }},
  {"DecodePrikeyInfo", {-1}, kNamed, [](In i) {
     return Crypt_Decode_Prikey_Info(i.pri(), int(n(i.key.pri)), word, field[0], field[1], field[2],
                                     field[3], field[4], field[5], field[6], field[7]); }},
  // It answers 1 only when neither key decodes, so the public one is left out.
  {"RestoreKey", {1}, kNamed, [](In i) {
     return Crypt_Restore_Key("restored.key", nullptr, 0, i.pri(), int(n(i.key.pri))); }},
  {"GenRSAKeyPair", {1}, kUnread, [](In) {
     return Crypt_GenRSAKeyPair("keypair.out", 0, out, &len, out + 256, &len2); }},
  // The public key encoder's result is deliberately not examined: its failures answer 0.
  {"GetRSAPublicKey", {1, 0}, kNamed, [](In i) {
     return Crypt_GetRSAPublicKey(i.key.path.c_str(), 0, out, &len); }},
  {"GenSignature", {1}, kNamed, [](In i) {
     return Crypt_Gen_Signature(3, i.key.path.c_str(), "", i.data.data(), n(i.data), out, &len); }},
  {"GenSignatureByPrikey", {1}, kNamed, [](In i) {
     return Crypt_Gen_Signature_By_Prikey(3, i.pri(), n(i.key.pri), i.data.data(), n(i.data), out,
                                          &len); }},
  {"VerSignature", {1}, kNamed, [](In i) {
     return Crypt_Ver_Signature(3, i.pub(), n(i.key.pub), i.data.data(), n(i.data), i.sig.data(),
                                128); }},
  {"GetPubKeyFromCert", {1}, kNamed, [](In i) {
     return Crypt_Get_PubKey_FromCert(i.cert.data(), n(i.cert), out, &len); }},
  // 3 while the key is taken from the certificate, then what VerSignature answers.
  {"VerSignatureByCert", {3, 1}, kNamed, [](In i) {
     return Crypt_Ver_Signature_ByCert(3, i.cert.data(), n(i.cert), i.data.data(), n(i.data),
                                       i.sig.data(), 128); }},
  {"AsynEncByPrikey", {1}, kNamed, [](In i) {
     return Crypt_Asyn_Enc_Data_By_Prikey(i.data.data(), n(i.data), out, &len, i.pri(),
                                          n(i.key.pri)); }},
  {"AsynDecByPubkey", {1}, kNamed, [](In i) {
     return Crypt_Asyn_Dec_Data_By_Pubkey(i.byPri.data(), 128, out, &len, i.pub(), n(i.key.pub)); }},
  {"AsynEncByPubkey", {1}, kNamed, [](In i) {
     return Crypt_Asyn_Enc_Data_By_Pubkey(i.data.data(), n(i.data), out, &len, i.pub(),
                                          n(i.key.pub)); }},
  {"AsynDecByPrikey", {1}, kNamed, [](In i) {
     return Crypt_Asyn_Dec_Data_By_Prikey(i.byPub.data(), 128, out, &len, i.pri(), n(i.key.pri)); }},
  {"EncData", {1}, kNamed, [](In i) {
     return Crypt_Enc_Data(i.data.data(), n(i.data), out, &len, i.pub(), n(i.key.pub)); }},
  {"DecData", {1}, kNamed, [](In i) {
     return Crypt_Dec_Data(i.sealed.data(), n(i.sealed), out, &len, i.key.path.c_str()); }},
  {"DecDataByPrikey", {1}, kNamed, [](In i) {
     return Crypt_Dec_Data_By_Prikey(i.sealed.data(), n(i.sealed), out, &len, i.pri(),
                                     n(i.key.pri)); }},
  {"EncodeCert", {1}, kNamed, [](In i) {
     Bytes der;
     return x509_test::encode_cert(cert_input(i.key, "Sweep"), &der); }},
  {"DecodeCert", {1}, kNamed, [](In i) {
     static x509_test::CertOutput o;
     return x509_test::decode_cert(i.cert, &o, std::nullopt); }},
  {"GetCharInfoFromCert", {1}, kNamed, [](In i) {
     return Crypt_Get_Char_Info_FromCert(i.cert.data(), n(i.cert), 21, out, &len); }},
  {"VerCertByRootCert", {1}, kNamed, [](In i) {
     return Crypt_Ver_Cert_ByRootCert(i.cert.data(), n(i.cert), i.cert.data(), n(i.cert)); }},
  {"GenCertChain", {1}, kNamed, [](In i) {
     return Crypt_Gen_Cert_Chain(i.cert.data(), n(i.cert), i.cert.data(), n(i.cert), out, &len); }},
  {"EncodeCrl", {1}, kNamed, [](In i) {
     return crl_test::encode(crl_input(i.key, {revoked(7, 7), revoked(8, 8)})).empty(); }},
  // The handle's own record fails without an entry: the session calls add none of theirs.
  {"DecodeCrl", {1}, kUnread, [](In i) { return !crl_test::decode(i.crl); }},
  {"EncodePkcs10", {1}, kNamed, [](In i) {
     return request_test::encode(request_test::named("Sweep"), i.key.pub, i.key.path).empty(); }},
  {"DecodePkcs10", {1}, kNamed, [](In i) { return request_test::decode(false, i.request).rc; }},
  {"DecodeNetscapeCertReq", {1}, kNamed, [](In i) {
     return request_test::decode(true, i.netscape).rc; }},
};
// clang-format on

void PrintTo(const Row& row, std::ostream* os) {
  *os << row.name;
}

class AllocSweep : public testing::TestWithParam<Row> {};

TEST_P(AllocSweep, EveryFailedAllocationFailsTheCallCleanly) {
  const Row& row = GetParam();
  ASSERT_FALSE(in().cert.empty());  // made before any allocation fails
  for (int n = 1;; ++n) {
    ASSERT_LT(n, 100000) << "never ran without a failed allocation";
    clear_errors();
    long result;
    bool fired;
    {
      FailNthMalloc fail{n};
      result = row.call(in());
      fired = fail.fired();
    }
    const std::string list = error_text();
    if (!fired) {
      EXPECT_EQ(result, 0) << list;
      EXPECT_GT(n, 1) << "allocates nothing: the row is not needed";
      return;
    }
    EXPECT_NE(std::find(row.failed.begin(), row.failed.end(), result), row.failed.end())
        << "answered " << result << " with malloc " << n << " failing";
    const bool named = list.find("malloc") != list.npos || list.find("memory") != list.npos;
    EXPECT_TRUE(row.report != kNamed || named) << "malloc " << n << ":\n" << list;
    EXPECT_TRUE(row.report != kEmpty || list.empty()) << "malloc " << n << ":\n" << list;
  }
}

INSTANTIATE_TEST_SUITE_P(Api, AllocSweep, testing::ValuesIn(kRows),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace hardening_test
