// The one set of helpers of the certificate tests: DER assembled by hand, OpenSSL's
// names, the two 94-argument certificate functions behind records a test can fill and
// compare, a small PKI of library keys in key files, and the command-line oracles.
#pragma once

#include <openssl/x509.h>

#include <array>
#include <cstring>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "frame/buffer.h"
#include "hylorn.h"
#include "support/error_list.h"
#include "support/hex.h"
#include "support/temp_dir.h"
#include "x509/records.h"

namespace x509_test {

using namespace hylorn_test;
using u8 = unsigned char;

inline hylorn::u32 size_of(const Bytes& b) {
  return static_cast<hylorn::u32>(b.size());
}
inline Bytes bytes(const u8* p, unsigned n) {
  return Bytes(p, p + n);
}

// The text Crypt_Get_Err gives for entries, exact to the blank: read_errors() cannot tell
// the message " " from "".
std::string entries_text(const Entries& entries);

// Runs an encoder into a fresh buffer; the bytes (empty when it fails), buffer freed.
template <class F>
Bytes encoded(F encode) {
  hylorn::DATA_BUFFER out{0, nullptr};
  const bool ok = encode(&out) == 0;
  Bytes der(out.data, out.data + out.length);
  hylorn::free_DATA_BUFFER(&out);
  return ok ? der : Bytes{};
}

// Runs call with its 1st, 2nd, ... malloc failing until one run allocates no more: each
// failing run answers 1 with fn's entry last (ASan reports what is left allocated).
void expect_allocation_failures_cleaned(int fn, const std::function<unsigned()>& call,
                                        int at_least);

// A DER element with definite length (up to 65,535 contents octets), and concatenation.
Bytes tlv(u8 tag, const Bytes& contents);
Bytes concat(const std::vector<Bytes>& parts);
inline Bytes seq(const std::vector<Bytes>& parts) {
  return tlv(0x30, concat(parts));
}

// A caller name with the given (slot, text) pairs, every other slot empty.
hylorn::USER_X500_NAME user_name(const std::vector<std::pair<int, std::string>>& slots);

// i2d_X509_NAME of one attribute per RDN: (OpenSSL's short name, string type, value).
struct OsslAttribute {
  const char* field;
  int type;
  std::string value;
};
Bytes openssl_name(const std::vector<OsslAttribute>& attributes);

// The eleven presence flags of an extension record, in their order; a value worth
// reading back in every extension (the flags choose what is written); all of them.
hylorn::u32* presence(hylorn::CERT_EXTN_INFO& info);
void fill(hylorn::CERT_EXTN_INFO& info, hylorn::u32 critical);
std::unique_ptr<hylorn::CERT_EXTN_INFO> everything();

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
Name name_of(const char (*slots)[HYLORN_NAME_SIZE]);
unsigned verify_cert(const Bytes& cert, const Bytes& issuer);

// A key pair of the library, its private key in a key file.
struct Key {
  std::string file;
  Bytes pub;
};
// Three keys (root, intermediate, leaf) made once per test binary.
struct Pki {
  TempDir dir;
  Key root, inter, leaf;
};
const Pki& pki();

// The elements inside a constructed element (definite lengths): a certificate's TBS,
// algorithm and signature value, for instance.
std::vector<Bytes> elements(const Bytes& der);

// The command's standard output and error, and its exit status.
struct ToolRun {
  int status;
  std::string output;
};
ToolRun run(const std::string& command);
bool have_tool(const std::string& name);

}  // namespace x509_test
