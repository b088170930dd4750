// What the whole-API tests work on: a key pair and its key file, and a certificate (every
// extension the arguments can ask for), a CRL and a request made and signed with it, all
// through the public functions only.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "crl/crl_calls.h"
#include "request/request_calls.h"
#include "x509/cert_calls.h"

namespace hardening_test {

using namespace hylorn_test;
using u8 = unsigned char;
using x509_test::Name;

// clang-format off
// A self-signed certificate for cn under key, with every extension.
inline x509_test::CertInput cert_input(const KeyFile& key, const std::string& cn) {
  const Name name = {"DE", "Hylorn", "Hardening", "", cn};
  return {.issuer = name, .subject = name, .pubKey = key.pub, .extFlags = 0x1DF, .critFlags = 0x12,
          .akiIssuer = name, .akiSerial = {0x02},
          .policies = {{{{0x2A, 0x03, 0x04}, "http://example.com/cps", {}}}},
          .pkupNotBefore = "20210101000000", .pkupNotAfter = "20301231235959", .cA = 1,
          .pathLen = 2, .keyUsage = 0xA0, .nsCertType = 0xA0, .setCertType = 0x80,
          .hashedRootKey = Bytes(20, 0x5C), .keyName = key.path};
}

// A CRL of the given entries, with both CRL extensions, signed with key.
inline crl_test::Crl crl_input(const KeyFile& key, std::vector<crl_test::Entry> entries) {
  using namespace crl_test;
  return {.entries = std::move(entries), .ext = kAki | kNumber, .akiIssuer = {"DE", "Hylorn"},
          .akiSerial = {0x01}, .number = {0x07}, .key = key.path};
}
inline crl_test::Entry revoked(u8 a, u8 b) {
  using namespace crl_test;
  return {{a, b}, "20250302000000", kReason | kInvalidity, kReason, 1, "20250301000000"};
}
// clang-format on

// One caller of the whole API: its own key file, and a certificate, a CRL, requests,
// signatures and envelopes made with it through the public functions, and room for every
// output of every call.
struct Service {
  KeyFile key;
  const u8 *pub = key.pub.data(), *pri = key.pri.data();
  const unsigned pubLen = unsigned(key.pub.size()), priLen = unsigned(key.pri.size());
  const Bytes data = bytes_of("the whole service");
  const u8* msg = data.data();
  const unsigned msgLen = unsigned(data.size());
  Bytes cert, crl, request, netscape;
  std::string pem, restored = key.dir.path("restored.key");
  u8 sig[HYLORN_RSA_BLOCK_SIZE], byPri[HYLORN_RSA_BLOCK_SIZE], byPub[HYLORN_RSA_BLOCK_SIZE];
  Bytes sealed = Bytes(512);
  u8 out[HYLORN_PKCS7_CHAIN_SIZE + HYLORN_CERT_DER_SIZE];
  u8 field[8][HYLORN_RSA_BLOCK_SIZE];
  unsigned len, len2, word[8];
  x509_test::CertOutput certOut;

  Service() {
    unsigned got = 0;
    x509_test::encode_cert(cert_input(key, "Service"), &cert);
    crl = crl_test::encode(crl_input(key, {revoked(1, 2), revoked(3, 4)}));
    request = request_test::encode(request_test::named("Service"), key.pub, key.path);
    netscape = request_test::spkac(key.pub, tlv(0x16, bytes_of("challenge")));
    pem.resize(2 * cert.size() + 256);
    DER2PEM_data_format(cert.data(), n(cert), pem.data(), &got, "-----B-----", "-----E-----");
    pem.resize(got);
    Crypt_Gen_Signature(3, key.path.c_str(), "", msg, msgLen, sig, &got);
    Crypt_Asyn_Enc_Data_By_Prikey(msg, msgLen, byPri, &got, pri, priLen);
    Crypt_Asyn_Enc_Data_By_Pubkey(msg, msgLen, byPub, &got, pub, pubLen);
    Crypt_Enc_Data(msg, msgLen, sealed.data(), &got, pub, pubLen);
    sealed.resize(got);
  }
  static unsigned n(const Bytes& b) { return unsigned(b.size()); }
};

// What a run with a failed allocation leaves in the error list.
enum Report { kNamed, kEmpty, kUnread };  // an entry saying "malloc" or "memory"; nothing; any

// Every exported function that allocates, called on a service; 0 is success.
using S = Service&;
struct Call {
  const char* name;
  std::vector<long> failed;  // what a run with a failed allocation may answer
  Report report;
  std::function<long(S)> call;
};
constexpr auto n = Service::n;

// clang-format off
inline const Call kCalls[] = {
  {"DER2PEM", {1}, kEmpty, [](S s) {
     char* pem = reinterpret_cast<char*>(s.out);
     return DER2PEM_data_format(s.cert.data(), n(s.cert), pem, &s.len, "B", "E"); }},
  {"PEM2DER", {1}, kEmpty, [](S s) {
     return PEM2DER_data_format(s.pem.c_str(), int(s.pem.size()), s.out, &s.len); }},
  {"DecodePubkeyInfo", {-1}, kNamed, [](S s) {
     return Crypt_Decode_Pubkey_Info(s.pub, int(s.pubLen), s.word, s.field[0], s.field[1]); }},
  {"DecodePrikeyInfo", {-1}, kNamed, [](S s) {
     u8(*f)[HYLORN_RSA_BLOCK_SIZE] = s.field;
     return Crypt_Decode_Prikey_Info(s.pri, int(s.priLen), s.word, f[0], f[1], f[2], f[3], f[4],
                                     f[5], f[6], f[7]); }},
  // It answers 1 only when neither key decodes, so the public one is left out.
  {"RestoreKey", {1}, kNamed, [](S s) {
     return Crypt_Restore_Key(s.restored.c_str(), nullptr, 0, s.pri, int(s.priLen)); }},
  {"GenRSAKeyPair", {1}, kUnread, [](S s) {
     return Crypt_GenRSAKeyPair("keypair.out", 0, s.out, &s.len, s.out + 256, &s.len2); }},
  // The public key encoder's result is deliberately not examined: its failures answer 0.
  {"GetRSAPublicKey", {1, 0}, kNamed, [](S s) {
     return Crypt_GetRSAPublicKey(s.key.path.c_str(), 0, s.out, &s.len); }},
  {"GenSignature", {1}, kNamed, [](S s) {
     return Crypt_Gen_Signature(3, s.key.path.c_str(), "", s.msg, s.msgLen, s.out, &s.len); }},
  {"GenSignatureByPrikey", {1}, kNamed, [](S s) {
     return Crypt_Gen_Signature_By_Prikey(3, s.pri, s.priLen, s.msg, s.msgLen, s.out, &s.len); }},
  {"VerSignature", {1}, kNamed, [](S s) {
     return Crypt_Ver_Signature(3, s.pub, s.pubLen, s.msg, s.msgLen, s.sig, 128); }},
  {"GetPubKeyFromCert", {1}, kNamed, [](S s) {
     return Crypt_Get_PubKey_FromCert(s.cert.data(), n(s.cert), s.out, &s.len); }},
  // 3 while the key is taken from the certificate, then what VerSignature answers.
  {"VerSignatureByCert", {3, 1}, kNamed, [](S s) {
     const u8* c = s.cert.data();
     return Crypt_Ver_Signature_ByCert(3, c, n(s.cert), s.msg, s.msgLen, s.sig, 128); }},
  {"AsynEncByPrikey", {1}, kNamed, [](S s) {
     return Crypt_Asyn_Enc_Data_By_Prikey(s.msg, s.msgLen, s.out, &s.len, s.pri, s.priLen); }},
  {"AsynDecByPubkey", {1}, kNamed, [](S s) {
     return Crypt_Asyn_Dec_Data_By_Pubkey(s.byPri, 128, s.out, &s.len, s.pub, s.pubLen); }},
  {"AsynEncByPubkey", {1}, kNamed, [](S s) {
     return Crypt_Asyn_Enc_Data_By_Pubkey(s.msg, s.msgLen, s.out, &s.len, s.pub, s.pubLen); }},
  {"AsynDecByPrikey", {1}, kNamed, [](S s) {
     return Crypt_Asyn_Dec_Data_By_Prikey(s.byPub, 128, s.out, &s.len, s.pri, s.priLen); }},
  {"EncData", {1}, kNamed, [](S s) {
     return Crypt_Enc_Data(s.msg, s.msgLen, s.out, &s.len, s.pub, s.pubLen); }},
  {"DecData", {1}, kNamed, [](S s) {
     return Crypt_Dec_Data(s.sealed.data(), n(s.sealed), s.out, &s.len, s.key.path.c_str()); }},
  {"DecDataByPrikey", {1}, kNamed, [](S s) {
     return Crypt_Dec_Data_By_Prikey(s.sealed.data(), n(s.sealed), s.out, &s.len, s.pri,
                                     s.priLen); }},
  {"EncodeCert", {1}, kNamed, [](S s) {
     Bytes der;
     return x509_test::encode_cert(cert_input(s.key, "Service"), &der); }},
  {"DecodeCert", {1}, kNamed, [](S s) {
     return x509_test::decode_cert(s.cert, &s.certOut, std::nullopt); }},
  {"GetCharInfoFromCert", {1}, kNamed, [](S s) {
     return Crypt_Get_Char_Info_FromCert(s.cert.data(), n(s.cert), 21, s.out, &s.len); }},
  {"VerCertByRootCert", {1}, kNamed, [](S s) {
     return Crypt_Ver_Cert_ByRootCert(s.cert.data(), n(s.cert), s.cert.data(), n(s.cert)); }},
  {"GenCertChain", {1}, kNamed, [](S s) {
     const u8* c = s.cert.data();
     return Crypt_Gen_Cert_Chain(c, n(s.cert), c, n(s.cert), s.out, &s.len); }},
  {"EncodeCrl", {1}, kNamed, [](S s) {
     return crl_test::encode(crl_input(s.key, {revoked(7, 7), revoked(8, 8)})).empty(); }},
  // The handle's own record fails without an entry: the session calls add none of theirs.
  {"DecodeCrl", {1}, kUnread, [](S s) { return !crl_test::decode(s.crl); }},
  {"EncodePkcs10", {1}, kNamed, [](S s) {
     return request_test::encode(request_test::named("Service"), s.key.pub, s.key.path).empty(); }},
  {"DecodePkcs10", {1}, kNamed, [](S s) { return request_test::decode(false, s.request).rc; }},
  {"DecodeNetscapeCertReq", {1}, kNamed, [](S s) {
     return request_test::decode(true, s.netscape).rc; }},
};
// clang-format on

}  // namespace hardening_test
