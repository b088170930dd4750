// The two 94-argument certificate functions behind records (no test framework here).
#pragma once

#include <array>
#include <optional>
#include <string>

#include "hylorn.h"
#include "support/hex.h"

// The sixteen slot arguments of a Name, in and out.
#define IN_SLOTS(n)                                                                         \
  n[0].c_str(), n[1].c_str(), n[2].c_str(), n[3].c_str(), n[4].c_str(), n[5].c_str(),       \
      n[6].c_str(), n[7].c_str(), n[8].c_str(), n[9].c_str(), n[10].c_str(), n[11].c_str(), \
      n[12].c_str(), n[13].c_str(), n[14].c_str(), n[15].c_str()
#define OUT_SLOTS(n)                                                                             \
  n[0], n[1], n[2], n[3], n[4], n[5], n[6], n[7], n[8], n[9], n[10], n[11], n[12], n[13], n[14], \
      n[15]

namespace x509_test {

using hylorn_test::Bytes;
using u8 = unsigned char;

using Name = std::array<std::string, 16>;  // slot order C, O, OU, ST, CN, L, title, ...
// Slot numbers of the names used most.
enum Slot { kC = 0, kO = 1, kOU = 2, kST = 3, kCN = 4, kL = 5, kEmail = 10 };

struct Policy {
  Bytes oid;                  // content octets
  std::string qualifier;      // CPS text, empty for none
  std::optional<int> length;  // the length argument, when not the size of oid
  int length_arg() const { return length ? *length : int(oid.size()); }
  bool operator==(const Policy&) const = default;
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
  bool operator==(const CertInput&) const = default;
};

// Every output of Crypt_Decode_Cert: numbers and lengths, octet fields, then texts.
struct CertOutput {
  unsigned version, serialLen, sigAlg, paramsLen, pubKeyLen, issuerUIDLen, subjectUIDLen;
  unsigned signatureLen, extFlags, critFlags, akiSerialLen, policyOidLen[4], policyCount;
  unsigned keyUsage, nsCertType, setCertType, hashedRootKeyLen, subjectKeyIdLen;
  u8 cA;
  int pathLen;
  u8 serial[HYLORN_SERIAL_SIZE], params[HYLORN_PARAMS_SIZE], pubKey[HYLORN_PUBKEY_SIZE];
  u8 issuerUID[HYLORN_SERIAL_SIZE], subjectUID[HYLORN_SERIAL_SIZE], akiSerial[HYLORN_SERIAL_SIZE];
  u8 signature[HYLORN_RSA_BLOCK_SIZE], policyOid[4][HYLORN_POLICY_OID_SIZE];
  u8 hashedRootKey[HYLORN_HASHED_ROOT_KEY_SIZE], subjectKeyId[HYLORN_SUBJECT_KEY_ID_SIZE];
  char issuer[16][HYLORN_NAME_SIZE], subject[16][HYLORN_NAME_SIZE];
  char akiIssuer[16][HYLORN_NAME_SIZE], policyQualifier[4][HYLORN_POLICY_QUALIFIER_SIZE];
  char notBefore[HYLORN_TIME_SIZE], notAfter[HYLORN_TIME_SIZE];
  char pkupNotBefore[HYLORN_TIME_SIZE], pkupNotAfter[HYLORN_TIME_SIZE];
};

// The certificate, or the result when it is not 0 (out then stays empty).
unsigned encode_cert(const CertInput& in, Bytes* out);
// Fills every output byte with fill first (unless none), so that a test sees what was set.
unsigned decode_cert(const Bytes& der, CertOutput* out, std::optional<u8> fill = 0xA5);
}  // namespace x509_test
