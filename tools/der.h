// Just enough DER reading for what the public interface leaves to its caller: splitting a
// signed object into the signed bytes, the algorithm and the signature, so that the tool
// can check the signatures of requests and CRLs, and object identifiers as text.
#pragma once

#include <string>
#include <vector>

#include "common.h"

namespace hylorn_tool {

struct Element {
  unsigned char tag = 0;
  const unsigned char* start = nullptr;  // the whole element
  size_t size = 0;                       // header and contents
  const unsigned char* content = nullptr;
  size_t length = 0;
};

// One element at the front of [p, p + n); false when it does not fit or is malformed.
bool read_element(const unsigned char* p, size_t n, Element& out);
// The elements inside a constructed element, or false.
bool read_children(const Element& parent, std::vector<Element>& out);

// SEQUENCE { toBeSigned, AlgorithmIdentifier, BIT STRING }.
struct SignedParts {
  Bytes tbs;            // the signed element, exactly as it stands
  std::string alg_oid;  // dotted
  int alg = 0;          // the library's number: 1 MD2, 2 MD5, 3 SHA-1 with RSA; 0 unknown
  Bytes signature;
};
bool split_signed(const Bytes& der, SignedParts& out);

std::string oid_text(const unsigned char* p, size_t n);
// Content octets of a dotted object identifier; fails on a malformed one.
Bytes oid_octets(const std::string& dotted);
const char* sig_alg_name(unsigned alg);
// "sha1" "md5" "md2" to 3 2 1.
int digest_number(const std::string& name);

}  // namespace hylorn_tool
