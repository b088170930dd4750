#include "coders.h"

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <string>

#include "asn1/der.h"
#include "asn1/list.h"
#include "hylorn.h"

namespace asn1_test {
namespace {

using hylorn::DATA_BUFFER;
using hylorn::u32;
using hylorn::u8;

Bytes take(DATA_BUFFER* b) {
  Bytes out(b->data, b->data + b->length);
  hylorn::free_DATA_BUFFER(b);
  return out;
}

template <u32 (*F)(u32, const u8*, DATA_BUFFER*)>
Decoded contents(u32 total, const u8* der) {
  DATA_BUFFER out{0, nullptr};
  Decoded d;
  d.result = F(total, der, &out);
  d.value = take(&out);
  return d;
}

Decoded boolean(u32 total, const u8* der) {
  u8 value = 0x55;
  Decoded d;
  d.result = hylorn::ASN1_Decode_Boolean(total, der, &value);
  d.extra = value;
  return d;
}

Decoded bit_string(u32 total, const u8* der) {
  hylorn::BIT_DATA_BUFFER out{0, 0, nullptr};
  Decoded d;
  d.result = hylorn::ASN1_Decode_Bit_String(total, der, &out);
  d.value.assign(out.data, out.data + out.length);
  d.extra = out.unusedBits;
  hylorn::free_BIT_DATA_BUFFER(&out);
  return d;
}

Decoded object(u32 total, const u8* der) {
  hylorn::ASN1_OBJECT_ID out{77, {0, nullptr}};
  Decoded d;
  d.result = hylorn::ASN1_Decode_Object(total, der, &out);
  d.value = take(&out.oid);
  d.extra = out.oidValue;
  return d;
}

template <bool kByPointer>
Decoded explicit_tag(u32 total, const u8* der) {
  const DATA_BUFFER in{total, const_cast<u8*>(der)};
  DATA_BUFFER out{0, nullptr};
  u8 tag = 0xEE;
  Decoded d;
  d.result = kByPointer ? hylorn::ASN1_Decode_Explicit_Tag_P(&in, &out, &tag)
                        : hylorn::ASN1_Decode_Explicit_Tag(total, der, &out, &tag);
  d.value = take(&out);
  d.extra = tag;
  return d;
}

template <u32 (*F)(u32, const u8*, hylorn::ASN1_SEQUENCE**)>
Decoded list(u32 total, const u8* der) {
  auto* sentinel = reinterpret_cast<hylorn::ASN1_SEQUENCE*>(&total);
  hylorn::ASN1_SEQUENCE* head = sentinel;  // must be left alone on failure
  Decoded d;
  d.result = F(total, der, &head);
  if (d.result != 0) {
    if (head != sentinel) d.nodes.push_back(hylorn_test::bytes_of("<list written>"));
    return d;
  }
  for (const auto* n = head; n != nullptr; n = n->next)
    d.nodes.emplace_back(n->value.data, n->value.data + n->value.length);
  hylorn::free_ASN1_SEQUENCE(head);
  return d;
}

// clang-format off
const Decoder kDecoders[] = {
    {"Integer", 112, 0x02, "02 03 00 80 00", contents<hylorn::ASN1_Decode_Integer>},
    {"Boolean", 114, 0x01, "01 01 ff", boolean},
    {"BitString", 106, 0x03, "03 03 07 ff 80", bit_string},
    {"Object", 104, 0x06, "06 03 55 04 03", object},
    {"OctetString", 120, 0x04, "04 84 00 00 00 02 aa bb", contents<hylorn::ASN1_Decode_Octet_String>},
    {"PrintableString", 116, 0x13, "13 02 41 42", contents<hylorn::ASN1_Decode_PrintableString>},
    {"T61String", 226, 0x14, "14 83 00 00 02 41 42", contents<hylorn::ASN1_Decode_T61String>},
    {"IA5String", 118, 0x16, "16 02 41 42", contents<hylorn::ASN1_Decode_IA5String>},
    {"UTCTime", 122, 0x17, "17 02 41 42", contents<hylorn::ASN1_Decode_UTCTime>},
    {"GeneralizedTime", 124, 0x18, "18 02 41 42", contents<hylorn::ASN1_Decode_GeneralizedTime>},
    {"BMPString", 156, 0x1E, "1e 04 4e 2d 00 41", contents<hylorn::ASN1_Decode_BMPString>},
    {"ExplicitTag", 126, 0xA3, "a3 81 03 02 01 05", explicit_tag<false>},
    {"ExplicitTagP", 223, 0xA3, "a3 02 05 00", explicit_tag<true>},
    {"Sequence", 108, 0x30, "30 06 02 01 05 04 01 41", list<hylorn::ASN1_Decode_Sequence>},
    {"Set", 110, 0x31, "31 06 04 01 41 02 01 05", list<hylorn::ASN1_Decode_Set>},
};
// clang-format on

DATA_BUFFER view(const Bytes& c) {
  return DATA_BUFFER{u32(c.size()), const_cast<u8*>(c.data())};
}

template <u32 (*F)(DATA_BUFFER, DATA_BUFFER*)>
u32 plain(const Bytes& c, DATA_BUFFER* out) {
  return F(view(c), out);
}

const Encoder kEncoders[] = {
    {"Integer", 111, plain<hylorn::ASN1_Encode_Integer>},
    {"BitString", 105,
     [](const Bytes& c, DATA_BUFFER* out) {
       return hylorn::ASN1_Encode_Bit_String({u32(c.size()), 0, const_cast<u8*>(c.data())}, out);
     }},
    {"Object", 103,
     [](const Bytes& c, DATA_BUFFER* out) {
       return hylorn::ASN1_Encode_Object({0, view(c)}, out);
     }},
    {"OctetString", 119, plain<hylorn::ASN1_Encode_Octet_String>},
    {"PrintableString", 115, plain<hylorn::ASN1_Encode_PrintableString>},
    {"IA5String", 117, plain<hylorn::ASN1_Encode_IA5String>},
    {"UTCTime", 121, plain<hylorn::ASN1_Encode_UTCTime>},
    {"GeneralizedTime", 123, plain<hylorn::ASN1_Encode_GeneralizedTime>},
    {"ExplicitTag", 125,
     [](const Bytes& c, DATA_BUFFER* out) {
       return hylorn::ASN1_Encode_Explicit_Tag(view(c), 3, out);
     }},
    {"ExplicitTagP", 222,
     [](const Bytes& c, DATA_BUFFER* out) {
       const DATA_BUFFER in = view(c);
       return hylorn::ASN1_Encode_Explicit_Tag_P(&in, 3, out);
     }},
};

template <class T>
const T& find(std::span<const T> all, std::string_view name) {
  for (const T& x : all)
    if (name == x.name) return x;
  throw std::invalid_argument("no coder " + std::string(name));
}

}  // namespace

std::span<const Decoder> decoders() {
  return kDecoders;
}
const Decoder& decoder(std::string_view name) {
  return find(decoders(), name);
}
std::span<const Encoder> encoders() {
  return kEncoders;
}

Decoded decode_exact(std::string_view name, const Bytes& der) {
  std::unique_ptr<u8[]> copy(new u8[der.size()]);
  std::copy(der.begin(), der.end(), copy.get());
  return decoder(name).run(u32(der.size()), copy.get());
}

std::pair<u32, Bytes> encode(std::string_view name, const Bytes& contents) {
  DATA_BUFFER out{0, nullptr};
  const u32 result = find(encoders(), name).run(contents, &out);
  return {result, take(&out)};
}

void load_test_bmp_table() {
  static const std::vector<u8> table = [] {
    std::vector<u8> t(2 * HYLORN_BMP_TABLE_ENTRIES);
    for (u32 u = 0; u < HYLORN_BMP_TABLE_ENTRIES; ++u) {
      t[2 * u] = u8((u >> 8) ^ 0x11);
      t[2 * u + 1] = u8((u & 0xFF) ^ 0x22);
    }
    return t;
  }();
  Crypt_GetBMPTable(table.data());
}

}  // namespace asn1_test
