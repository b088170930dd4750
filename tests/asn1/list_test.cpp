// SEQUENCE and SET lists: building, encoding (against OpenSSL), splitting, and the
// refusals of the walk over the components.
#include "asn1/list.h"

#include <gtest/gtest.h>
#include <openssl/asn1.h>

#include <random>
#include <string>

#include "coders.h"
#include "support/error_list.h"
#include "support/hex.h"
#include "support/openssl_bytes.h"
#include "support/random_bytes.h"

namespace {

using namespace hylorn_test;
using asn1_test::decode_exact;
using hylorn::ASN1_SEQUENCE;
using hylorn::DATA_BUFFER;
using hylorn::u32;
using hylorn::u8;
using ListEncoder = u32 (*)(const ASN1_SEQUENCE*, DATA_BUFFER*);

// Builds a list the way the field coders do (new_ into the previous next) and encodes it.
Bytes encode_list(ListEncoder encoder, const std::vector<Bytes>& values) {
  ASN1_SEQUENCE* head = nullptr;
  ASN1_SEQUENCE** slot = &head;
  for (const Bytes& v : values) {
    EXPECT_EQ(hylorn::new_ASN1_SEQUENCE(slot), 0u);
    EXPECT_EQ(hylorn::copy_DATA_BUFFER(&(*slot)->value, u32(v.size()), v.data()), 0u);
    slot = &(*slot)->next;
  }
  DATA_BUFFER out{0, nullptr};
  EXPECT_EQ(encoder(head, &out), 0u);
  hylorn::free_ASN1_SEQUENCE(head);
  Bytes der(out.data, out.data + out.length);
  hylorn::free_DATA_BUFFER(&out);
  return der;
}

// Guards the header over the summed values at each length boundary, the list order (SET
// components are not sorted) and empty values: OpenSSL writes the same header.
TEST(ListEncode, SameHeaderAsOpenSslAtEveryLengthBoundary) {
  std::mt19937 rng(5);
  for (auto [encoder, tag] : {std::pair{&hylorn::ASN1_Encode_Sequence, V_ASN1_SEQUENCE},
                              {&hylorn::ASN1_Encode_Set, V_ASN1_SET}}) {
    for (std::size_t first : {0u, 1u, 125u, 126u, 127u, 253u, 254u, 65533u, 65534u}) {
      const Bytes a = random_bytes(rng, first), b = from_hex("ff 00");
      Bytes both = b;
      both.insert(both.end(), a.begin(), a.end());
      EXPECT_EQ(to_hex(encode_list(encoder, {b, a})),
                to_hex(openssl_tlv(true, tag, V_ASN1_UNIVERSAL, both)))
          << first;
    }
    EXPECT_EQ(to_hex(encode_list(encoder, {})),
              to_hex(openssl_tlv(true, tag, V_ASN1_UNIVERSAL, {})));
  }
}

// Guards the split into whole components: long forms, 0x80, nesting, tags not examined,
// and the empty SEQUENCE that ignores what follows it.
TEST(ListDecode, GivesTheComponentsInOrder) {
  // clang-format off
  const std::tuple<const char*, const char*, std::vector<const char*>> cases[] = {
      {"Sequence", "30 00", {}}, {"Sequence", "30 00 05 00", {}}, {"Set", "31 00 ff", {}},
      {"Sequence", "30 80", {}}, {"Set", "31 03 ff 01 00", {"ff 01 00"}},
      {"Set", "31 06 04 01 41 02 01 05", {"04 01 41", "02 01 05"}},
      {"Sequence", "30 81 06 02 01 05 04 01 41", {"02 01 05", "04 01 41"}},
      {"Sequence", "30 0a 04 81 05 01 02 03 04 05 05 00", {"04 81 05 01 02 03 04 05", "05 00"}},
      {"Sequence", "30 04 04 80 05 00", {"04 80", "05 00"}},
      {"Sequence", "30 05 30 03 02 01 07", {"30 03 02 01 07"}}};
  // clang-format on
  for (const auto& [decoder, der, nodes] : cases) {
    const auto d = decode_exact(decoder, from_hex(der));
    ASSERT_EQ(d.result, 0u) << der << ::testing::PrintToString(read_errors());
    std::vector<std::string> got, want;
    for (const auto& n : d.nodes) got.push_back(to_hex(n));
    for (const char* n : nodes) want.push_back(to_hex(from_hex(n)));
    EXPECT_EQ(got, want) << der;
  }
}

// Guards the component checks, which must read only the contents' own bytes, free the
// nodes built so far and leave *list alone; the same numbers for SEQUENCE and SET.
TEST(ListDecode, RefusesComponentsThatDoNotFit) {
  // clang-format off
  const std::pair<const char*, int> cases[] = {
      {"30 04 02 05 00 00", 9},              // claims 7 where the contents are 4
      {"30 06 04 84 ff ff ff ff", 9},        // size wraps 32 bits to 5
      {"30 08 04 84 ff ff ff fa 00 00", 9},  // size wraps 32 bits to 0
      {"30 03 02 85 00", 8},                 // more than 4 length octets
      {"30 05 02 01 05 04 02", 11},          // within the contents, past their end
      // Length octets past the end of the contents.
      {"30 01 05", 11}, {"30 04 02 01 05 04", 11}, {"30 05 02 01 05 04 84", 11},
      {"30 06 02 01 05 04 82 01", 11}};
  // clang-format on
  for (auto [hex, err_no] : cases) {
    Bytes der = from_hex(hex);
    for (auto [name, func_no, tag] :
         {std::tuple{"Sequence", 108, u8(0x30)}, {"Set", 110, u8(0x31)}}) {
      der[0] = tag;
      const auto d = decode_exact(name, der);
      EXPECT_EQ(d.result, 1u) << hex;
      EXPECT_TRUE(d.nodes.empty()) << hex;  // the adapter notes a written list
      EXPECT_EQ(read_errors(), (Entries{{func_no, err_no, "data length"}})) << hex;
    }
  }
}

}  // namespace
