// SEQUENCE and SET lists: building, encoding (against OpenSSL), splitting, and the
// refusals of the walk over the components.
#include "asn1/list.h"

#include <gtest/gtest.h>
#include <openssl/asn1.h>

#include <string>

#include "coders.h"
#include "frame/error.h"
#include "support/error_list.h"
#include "support/hex.h"

namespace {

using asn1_test::Bytes;
using asn1_test::decode_exact;
using hylorn::ASN1_SEQUENCE;
using hylorn::DATA_BUFFER;
using hylorn::u32;
using hylorn::u8;
using hylorn_test::ErrEntry;
using hylorn_test::from_hex;
using hylorn_test::read_errors;
using hylorn_test::to_hex;
using Entries = std::vector<ErrEntry>;
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

// Guards the header over the summed values at each length boundary and the list order:
// OpenSSL splits what we write into the same elements. SET components are not sorted.
TEST(ListEncode, OpenSslSplitsItIntoTheSameElements) {
  using Split = STACK_OF(ASN1_TYPE) * (*)(STACK_OF(ASN1_TYPE)**, const unsigned char**, long);
  const std::pair<ListEncoder, Split> kinds[] = {
      {hylorn::ASN1_Encode_Sequence, d2i_ASN1_SEQUENCE_ANY},
      {hylorn::ASN1_Encode_Set, d2i_ASN1_SET_ANY}};
  for (auto [encoder, split] : kinds) {
    for (u32 first : {0u, 1u, 120u, 123u, 124u, 250u, 251u, 65528u, 65529u}) {
      const Bytes a(first, 0x11), b(2, 0x22);
      const Bytes a_der = first == 0 ? from_hex("04 00") : asn1_test::encode("OctetString", a).der;
      const Bytes der = encode_list(encoder, {asn1_test::encode("OctetString", b).der, a_der});
      const unsigned char* p = der.data();
      STACK_OF(ASN1_TYPE)* items = split(nullptr, &p, long(der.size()));
      ASSERT_NE(items, nullptr) << first;
      EXPECT_EQ(p, der.data() + der.size());
      ASSERT_EQ(sk_ASN1_TYPE_num(items), 2);
      for (int i = 0; i < 2; ++i) {
        const ASN1_STRING* s = sk_ASN1_TYPE_value(items, i)->value.octet_string;
        EXPECT_EQ(Bytes(s->data, s->data + s->length), i == 0 ? b : a) << first;
      }
      sk_ASN1_TYPE_pop_free(items, ASN1_TYPE_free);
    }
  }
  const Bytes integer = from_hex("02 01 05"), octets = from_hex("04 01 41");
  EXPECT_EQ(to_hex(encode_list(hylorn::ASN1_Encode_Sequence, {})), "3000");
  EXPECT_EQ(to_hex(encode_list(hylorn::ASN1_Encode_Set, {})), "3100");
  EXPECT_EQ(to_hex(encode_list(hylorn::ASN1_Encode_Set, {octets, integer})), "3106040141020105");
}

// Guards the 64-bit sum: two values adding up past 2^32 are refused before any read.
TEST(ListEncode, RefusesSumsPastThirtyTwoBits) {
  u8 byte = 0;
  ASN1_SEQUENCE second{nullptr, {0x80000000u, &byte}};
  ASN1_SEQUENCE first{&second, {0x7FFFFFFFu, &byte}};
  DATA_BUFFER out{0, nullptr};
  EXPECT_EQ(hylorn::ASN1_Encode_Sequence(&first, &out), 1u);
  EXPECT_EQ(read_errors(), (Entries{{107, 2, "data too length"}}));
  EXPECT_EQ(hylorn::ASN1_Encode_Set(&first, &out), 1u);
  EXPECT_EQ(read_errors(), (Entries{{109, 2, "data too length"}}));
  EXPECT_EQ(out.data, nullptr);
}

// Guards the record operation: an empty unlinked node, and the caller's list kept.
TEST(ListNodes, NewGivesAnEmptyUnlinkedNodeAndKeepsTheList) {
  for (auto make : {hylorn::new_ASN1_SEQUENCE, hylorn::new_ASN1_SET}) {
    hylorn::Crypt_Clear_Err();
    hylorn::Crypt_Put_Err(1, 2, "earlier");
    ASN1_SEQUENCE* node = nullptr;
    ASSERT_EQ(make(&node), 0u);
    ASSERT_NE(node, nullptr);
    EXPECT_EQ(node->next, nullptr);
    EXPECT_EQ(node->value.data, nullptr);
    EXPECT_EQ(node->value.length, 0u);
    EXPECT_EQ(read_errors(), (Entries{{1, 2, "earlier"}}));
    EXPECT_EQ(hylorn::free_ASN1_SET(node), 0u);
  }
}

// Guards the split into whole components: long forms, 0x80, nesting, tags not examined,
// and the empty SEQUENCE that ignores what follows it.
TEST(ListDecode, GivesTheComponentsInOrder) {
  const std::tuple<const char*, const char*, std::vector<const char*>> cases[] = {
      {"Sequence", "30 00", {}},
      {"Sequence", "30 00 05 00", {}},
      {"Set", "31 00 ff", {}},
      {"Sequence", "30 80", {}},
      {"Set", "31 06 04 01 41 02 01 05", {"04 01 41", "02 01 05"}},
      {"Sequence", "30 81 06 02 01 05 04 01 41", {"02 01 05", "04 01 41"}},
      {"Sequence", "30 0a 04 81 05 01 02 03 04 05 05 00", {"04 81 05 01 02 03 04 05", "05 00"}},
      {"Sequence", "30 04 04 80 05 00", {"04 80", "05 00"}},
      {"Set", "31 03 ff 01 00", {"ff 01 00"}},
      {"Sequence", "30 05 30 03 02 01 07", {"30 03 02 01 07"}}};
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
  const std::pair<const char*, int> cases[] = {
      {"30 04 02 05 00 00", 9},              // claims 7 where the contents are 4
      {"30 06 04 84 ff ff ff ff", 9},        // size wraps 32 bits to 5
      {"30 08 04 84 ff ff ff fa 00 00", 9},  // size wraps 32 bits to 0
      {"30 03 02 85 00", 8},                 // more than 4 length octets
      {"30 05 02 01 05 04 02", 11},          // within the contents, past their end
      {"30 01 05", 11},                      // length octets past the end of the contents
      {"30 04 02 01 05 04", 11},
      {"30 05 02 01 05 04 84", 11},
      {"30 06 02 01 05 04 82 01", 11}};
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
