// Certificates through the library's flat argument lists: one record the tool fills or
// reads, and the two calls that spell out the 94 arguments.
#pragma once

#include <string>
#include <vector>

#include "common.h"

// The sixteen name slots as sixteen separate arguments, in slot order.
#define HYLORN_TOOL_NAME16(n)                                                                    \
  n[0], n[1], n[2], n[3], n[4], n[5], n[6], n[7], n[8], n[9], n[10], n[11], n[12], n[13], n[14], \
      n[15]

namespace hylorn_tool {

// Extension selection bits of Crypt_Encode_Cert and Crypt_Decode_Cert.
enum ExtBits : unsigned {
  kExtAuthorityKeyId = 0x1,
  kExtKeyUsage = 0x2,
  kExtPrivateKeyUsagePeriod = 0x4,
  kExtPolicies = 0x8,
  kExtBasicConstraints = 0x10,
  kExtNetscapeCertType = 0x40,
  kExtSetHashedRootKey = 0x80,
  kExtSetCertType = 0x100,
};

// Key usage bits as the library lays them out (first BIT STRING octet in the low byte).
struct FlagName {
  unsigned bit;
  const char* name;
};
extern const FlagName kKeyUsageNames[9];
std::string flag_names(unsigned bits, const FlagName* table, size_t count);

// "digitalSignature,keyCertSign" to bits; unknown names are refused.
unsigned parse_flags(const std::string& list, const FlagName* table, size_t count,
                     const std::string& what);

// CRLReason codes.
const char* reason_name(int code);
int reason_code(const std::string& name);  // fails on an unknown name

// The DER public key of a key file.
Bytes key_file_public(const std::string& key_file);

struct Policy {
  Bytes oid;  // content octets
  std::string qualifier;
};

struct Cert {
  unsigned version = 2;
  Bytes serial;
  unsigned sig_alg = 3;
  Bytes params{0x05, 0x00};
  Name issuer, subject;
  std::string not_before, not_after;
  Bytes public_key;  // DER RSAPublicKey
  Bytes signature;   // read back only
  unsigned ext_flags = 0, crit_flags = 0;
  Name aki_issuer;
  Bytes aki_serial;
  std::vector<Policy> policies;  // up to four
  std::string pkup_not_before, pkup_not_after;
  bool ca = false;
  int path_len = -1;  // on input: negative leaves it out; on output: -1 absent
  unsigned key_usage = 0, ns_cert_type = 0, set_cert_type = 0;
  Bytes hashed_root_key;
  Bytes subject_key_id;  // read back only
};

// False when the bytes are not a certificate; the library's error list says why.
bool decode_cert(const Bytes& der, Cert& out);
// Decodes or fails naming the file.
Cert load_cert(const Bytes& der, const std::string& path);
// Signs with the key file keyName.
Bytes encode_cert(const Cert& in, const std::string& key_name);

// PKCS #10 requests. The library reads a request without checking its signature; the
// tool checks it, since a request is worth nothing without proof of the key.
struct Request {
  unsigned version = 0;
  Name subject;
  Bytes public_key;
};
bool decode_request(const Bytes& der, Request& out);
// Crypt_Ver_Signature's answer for the request's own signature (0 valid), or -1 when the
// signed parts cannot be found.
int request_signature_status(const Bytes& der, const Request& req);
std::string signature_status_text(int status);

// CRLs, read whole through the library's Init / Update / Final session.
struct CrlEntry {
  Bytes serial;
  std::string date, invalidity;
  unsigned ext = 0, crit = 0, reason = 0;  // 0x0400 reason, 0x0800 invalidity date
};
struct Crl {
  unsigned version = 0, sig_alg = 0;
  Name issuer;
  std::string this_update, next_update;
  std::vector<CrlEntry> entries;
  unsigned ext = 0, crit = 0;  // 0x0001 authority key identifier, 0x1000 CRL number
  Name aki_issuer;
  Bytes aki_serial, number;
};
// False when the bytes are not a CRL; the library's error list says why.
bool decode_crl(const Bytes& der, Crl& out);

// Fixed-size copies of a Name for the library's input slots.
struct NameArgs {
  explicit NameArgs(const Name& n) : name(n) {}
  const char* operator[](int i) const { return name[i].c_str(); }
  const Name& name;
};

}  // namespace hylorn_tool
