// Uniform handles on the DER coders, so that one table of cases runs through every
// decoder or encoder: each adapter frees what the coder returned and hands back copies.
#pragma once

#include <span>
#include <string_view>
#include <vector>

#include "frame/buffer.h"
#include "support/hex.h"

namespace asn1_test {

using hylorn_test::Bytes;

struct Decoded {
  hylorn::u32 result = 1;
  Bytes value;               // contents (BIT STRING: without the unused-bits octet)
  unsigned extra = 0;        // BIT STRING unused bits, explicit tag number, BOOLEAN value,
                             // or the oidValue 77 the Object decoder must leave alone
  std::vector<Bytes> nodes;  // SEQUENCE / SET components; "<list written>" on a failure
                             // that wrote the caller's list pointer
};

struct Decoder {
  const char* name;
  int func_no;
  hylorn::u8 tag;      // identifier octet of a valid element
  const char* sample;  // a valid element, in hex
  Decoded (*run)(hylorn::u32 total, const hylorn::u8* der);
};
std::span<const Decoder> decoders();
const Decoder& decoder(std::string_view name);

// Runs the named decoder on a heap copy of der of exactly der.size() bytes, so that any
// read past the end is caught by AddressSanitizer.
Decoded decode_exact(std::string_view name, const Bytes& der);

// The encoders that take a contents buffer (BIT STRING with 0 unused bits, explicit tags
// with tag number 3): the result and the element.
struct Encoder {
  const char* name;
  int func_no;
  hylorn::u32 (*run)(const Bytes& contents, hylorn::DATA_BUFFER* out);
};
std::span<const Encoder> encoders();
std::pair<hylorn::u32, Bytes> encode(std::string_view name, const Bytes& contents);

// Loads a BMP table whose entry u is { (u >> 8) ^ 0x11, (u & 0xFF) ^ 0x22 }.
void load_test_bmp_table();

}  // namespace asn1_test
