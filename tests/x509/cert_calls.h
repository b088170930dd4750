// The two 94-argument certificate functions behind records a test can fill and compare,
// a small PKI of keys made by the library in key files, and the command-line oracles.
#pragma once

#include <array>
#include <optional>
#include <string>

#include "hylorn.h"
#include "support/hex.h"
#include "support/temp_dir.h"

namespace cert_test {

using namespace hylorn_test;
using u8 = unsigned char;
using Name = std::array<std::string, 16>;  // slot order C, O, OU, ST, CN, L, title, ...

// Slot numbers of the names used most.
enum Slot { kC = 0, kO = 1, kOU = 2, kST = 3, kCN = 4, kL = 5, kEmail = 10 };

struct Policy {
  Bytes oid;                  // content octets
  std::string qualifier;      // CPS text, empty for none
  std::optional<int> length;  // the length argument, when not the size of oid
};

// Every argument of Crypt_Encode_Cert, the ignored ones aside.
struct CertInput {
  u8 version = 2;
  Bytes serial = {0x01, 0x23};
  unsigned short sigAlg = 3;
  Bytes params = {0x05, 0x00};
  Name issuer;
  std::string notBefore = "20200101000000";
  std::string notAfter = "20491231235959";
  Name subject;
  Bytes pubKey;
  unsigned extFlags = 0;
  unsigned critFlags = 0;
  Name akiIssuer;
  Bytes akiSerial;
  std::array<Policy, 4> policies;
  std::string pkupNotBefore, pkupNotAfter;
  u8 cA = 0;
  int pathLen = -1;
  unsigned keyUsage = 0, nsCertType = 0, setCertType = 0;
  Bytes hashedRootKey;
  std::string keyName;
};

// Every output of Crypt_Decode_Cert.
struct CertOutput {
  unsigned version, serialLen, sigAlg, paramsLen;
  u8 serial[HYLORN_SERIAL_SIZE];
  u8 params[HYLORN_PARAMS_SIZE];
  char issuer[16][HYLORN_NAME_SIZE];
  char notBefore[HYLORN_TIME_SIZE], notAfter[HYLORN_TIME_SIZE];
  char subject[16][HYLORN_NAME_SIZE];
  u8 pubKey[HYLORN_PUBKEY_SIZE];
  unsigned pubKeyLen;
  u8 issuerUID[HYLORN_SERIAL_SIZE], subjectUID[HYLORN_SERIAL_SIZE];
  unsigned issuerUIDLen, subjectUIDLen;
  u8 signature[HYLORN_RSA_BLOCK_SIZE];
  unsigned signatureLen;
  unsigned extFlags, critFlags;
  char akiIssuer[16][HYLORN_NAME_SIZE];
  u8 akiSerial[HYLORN_SERIAL_SIZE];
  unsigned akiSerialLen;
  u8 policyOid[4][HYLORN_POLICY_OID_SIZE];
  unsigned policyOidLen[4];
  char policyQualifier[4][HYLORN_POLICY_QUALIFIER_SIZE];
  char pkupNotBefore[HYLORN_TIME_SIZE], pkupNotAfter[HYLORN_TIME_SIZE];
  u8 cA;
  int pathLen;
  unsigned keyUsage, nsCertType, setCertType;
  u8 hashedRootKey[HYLORN_HASHED_ROOT_KEY_SIZE];
  unsigned hashedRootKeyLen;
  unsigned policyCount;
  u8 subjectKeyId[HYLORN_SUBJECT_KEY_ID_SIZE];
  unsigned subjectKeyIdLen;
};

// The certificate, or the result when it is not 0 (out then stays empty).
unsigned encode_cert(const CertInput& in, Bytes* out);
// Fills every output byte with fill before the call, so that a test sees what was set.
unsigned decode_cert(const Bytes& der, CertOutput* out, u8 fill = 0xA5);
// The call alone.
unsigned decode_cert_into(const Bytes& der, CertOutput* out);

Name name_of(const char (*slots)[HYLORN_NAME_SIZE]);
inline Bytes bytes(const u8* p, unsigned n) {
  return Bytes(p, p + n);
}

// A key pair of the library, its private key in a key file.
struct Key {
  std::string file;
  Bytes pub;
};

// Three keys (root, intermediate, leaf) and a spare, made once per test binary.
struct Pki {
  TempDir dir;
  Key root, inter, leaf, other;
};
const Pki& pki();

// A DER element with definite length (up to 65,535 contents octets).
Bytes tlv(u8 tag, const Bytes& contents);
Bytes concat(std::initializer_list<Bytes> parts);
// Where the TBS, the algorithm and the signature value of a certificate start, and how
// many octets each element takes (definite lengths).
std::array<std::pair<std::size_t, std::size_t>, 3> certificate_parts(const Bytes& cert);
inline Bytes part(const Bytes& cert, int n) {
  const auto [at, size] = certificate_parts(cert)[n];
  return Bytes(cert.begin() + at, cert.begin() + at + size);
}

// The command's standard output and error, and its exit status.
struct ToolRun {
  int status;
  std::string output;
};
ToolRun run(const std::string& command);
bool have_tool(const std::string& name);

}  // namespace cert_test
