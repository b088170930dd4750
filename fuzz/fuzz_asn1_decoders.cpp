// Arbitrary bytes into every DER decoder. SEQUENCE and SET results are walked and each
// component is fed to every decoder again, a few levels deep. Whatever a decoder accepts
// must come back unchanged through the matching encoder and decoder.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "asn1/der.h"
#include "asn1/list.h"
#include "hylorn.h"

namespace {

using namespace hylorn;

void check(bool ok) {
  if (!ok) std::abort();
}

bool same(const DATA_BUFFER& a, const DATA_BUFFER& b) {
  return a.length == b.length && (a.length == 0 || std::memcmp(a.data, b.data, a.length) == 0);
}

// Contents decoded by `decode` survive encode -> decode.
void round_trip(const DATA_BUFFER& contents, u32 (*encode)(DATA_BUFFER, DATA_BUFFER*),
                u32 (*decode)(u32, const u8*, DATA_BUFFER*)) {
  if (contents.length == 0) return;  // the encoders refuse empty contents by design
  DATA_BUFFER der{0, nullptr}, back{0, nullptr};
  check(encode(contents, &der) == 0);
  check(decode(der.length, der.data, &back) == 0);
  check(same(contents, back));
  free_DATA_BUFFER(&der);
  free_DATA_BUFFER(&back);
}

struct StringCoder {
  u32 (*decode)(u32, const u8*, DATA_BUFFER*);
  u32 (*encode)(DATA_BUFFER, DATA_BUFFER*);  // null: no encoder, or not contents-preserving
};

const StringCoder kStrings[] = {
    {ASN1_Decode_Integer, nullptr},  // decoding drops a leading zero
    {ASN1_Decode_Octet_String, ASN1_Encode_Octet_String},
    {ASN1_Decode_PrintableString, ASN1_Encode_PrintableString},
    {ASN1_Decode_IA5String, ASN1_Encode_IA5String},
    {ASN1_Decode_UTCTime, ASN1_Encode_UTCTime},
    {ASN1_Decode_GeneralizedTime, ASN1_Encode_GeneralizedTime},
    {ASN1_Decode_T61String, nullptr},
    {ASN1_Decode_BMPString, nullptr},
};

void decode_all(u32 total, const u8* der, int depth);

void walk(u32 (*decode_list)(u32, const u8*, ASN1_SEQUENCE**), u32 total, const u8* der,
          int depth) {
  ASN1_SEQUENCE* list = nullptr;
  if (decode_list(total, der, &list) != 0) {
    check(list == nullptr);
    return;
  }
  u64 sum = 0;
  for (ASN1_SEQUENCE* n = list; n != nullptr; n = n->next) {
    sum += n->value.length;
    if (depth < 4) decode_all(n->value.length, n->value.data, depth + 1);
  }
  check(sum <= total);
  free_ASN1_SEQUENCE(list);
}

void decode_all(u32 total, const u8* der, int depth) {
  for (const auto& s : kStrings) {
    DATA_BUFFER out{0, nullptr};
    if (s.decode(total, der, &out) == 0) {
      check(out.length <= total);
      if (s.encode != nullptr) round_trip(out, s.encode, s.decode);
    } else {
      check(out.data == nullptr);
    }
    free_DATA_BUFFER(&out);
  }
  u8 flag = 0;
  ASN1_Decode_Boolean(total, der, &flag);
  BIT_DATA_BUFFER bits{0, 0, nullptr};
  if (ASN1_Decode_Bit_String(total, der, &bits) == 0) check(bits.unusedBits <= 7);
  free_BIT_DATA_BUFFER(&bits);
  ASN1_OBJECT_ID obj{0, {0, nullptr}};
  ASN1_Decode_Object(total, der, &obj);
  free_ASN1_OBJECT_ID(&obj);
  DATA_BUFFER inner{0, nullptr};
  u8 tag = 0;
  if (ASN1_Decode_Explicit_Tag(total, der, &inner, &tag) == 0) {
    check(tag < 32);
    if (depth < 4) decode_all(inner.length, inner.data, depth + 1);
  }
  free_DATA_BUFFER(&inner);
  walk(ASN1_Decode_Sequence, total, der, depth);
  walk(ASN1_Decode_Set, total, der, depth);
}

std::vector<u8> make_bmp_table() {
  std::vector<u8> table(2 * HYLORN_BMP_TABLE_ENTRIES);
  for (std::size_t i = 0; i < table.size(); ++i) table[i] = static_cast<u8>(i * 131 + 7);
  return table;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::vector<u8> table = make_bmp_table();
  Crypt_GetBMPTable(table.data());
  decode_all(static_cast<u32>(size), data, 0);  // libFuzzer's buffer is exactly size bytes
  return 0;
}
