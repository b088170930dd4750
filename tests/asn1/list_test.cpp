// SEQUENCE and SET lists: building, encoding, splitting, and the walk's refusals.
#include "asn1/list.h"

#include <gtest/gtest.h>

#include <string>

#include "asn1/der.h"
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

// Builds a list the way the library's field coders do: new_ into the previous next.
ASN1_SEQUENCE* build(const std::vector<Bytes>& values) {
  ASN1_SEQUENCE* head = nullptr;
  ASN1_SEQUENCE** slot = &head;
  for (const Bytes& v : values) {
    EXPECT_EQ(hylorn::new_ASN1_SEQUENCE(slot), 0u);
    EXPECT_EQ(hylorn::copy_DATA_BUFFER(&(*slot)->value, u32(v.size()), v.data()), 0u);
    slot = &(*slot)->next;
  }
  return head;
}

std::string encode_list(u32 (*encoder)(const ASN1_SEQUENCE*, DATA_BUFFER*),
                        const std::vector<Bytes>& values) {
  ASN1_SEQUENCE* list = build(values);
  DATA_BUFFER out{0, nullptr};
  EXPECT_EQ(encoder(list, &out), 0u);
  EXPECT_EQ(hylorn::free_ASN1_SEQUENCE(list), 0u);
  std::string hex = to_hex(out.data, out.length);
  hylorn::free_DATA_BUFFER(&out);
  return hex;
}

TEST(ListEncode, WritesValuesInListOrderUnderOneHeader) {
  const Bytes integer = from_hex("02 01 05"), octets = from_hex("04 01 41");
  EXPECT_EQ(encode_list(hylorn::ASN1_Encode_Sequence, {}), "3000");
  EXPECT_EQ(encode_list(hylorn::ASN1_Encode_Set, {}), "3100");
  EXPECT_EQ(encode_list(hylorn::ASN1_Encode_Sequence, {integer, octets}), "3006020105040141");
  // No DER SET OF sorting: the order given is the order written.
  EXPECT_EQ(encode_list(hylorn::ASN1_Encode_Set, {octets, integer}), "3106040141020105");
  const Bytes big(200, 0xAB);
  EXPECT_EQ(encode_list(hylorn::ASN1_Encode_Sequence, {big}), "3081c8" + to_hex(big));
}

TEST(ListEncode, RefusesSumsPastThirtyTwoBits) {
  u8 byte = 0;
  ASN1_SEQUENCE second{nullptr, {0x80000000u, &byte}};
  ASN1_SEQUENCE first{&second, {0x7FFFFFFFu, &byte}};  // nothing is read before sizing
  DATA_BUFFER out{0, nullptr};
  EXPECT_EQ(hylorn::ASN1_Encode_Sequence(&first, &out), 1u);
  EXPECT_EQ(read_errors(), (Entries{{107, 2, "data too length"}}));
  EXPECT_EQ(hylorn::ASN1_Encode_Set(&first, &out), 1u);
  EXPECT_EQ(read_errors(), (Entries{{109, 2, "data too length"}}));
  EXPECT_EQ(out.data, nullptr);
}

TEST(ListNodes, NewGivesAnEmptyUnlinkedNodeAndKeepsTheList) {
  for (auto make : {hylorn::new_ASN1_SEQUENCE, hylorn::new_ASN1_SET}) {
    hylorn::Crypt_Clear_Err();
    hylorn::Crypt_Put_Err(1, 2, "earlier");
    ASN1_SEQUENCE* node = nullptr;
    ASSERT_EQ(make(&node), 0u);
    ASSERT_NE(node, nullptr);
    EXPECT_EQ(node->next, nullptr);
    EXPECT_EQ(node->value.length, 0u);
    EXPECT_EQ(node->value.data, nullptr);
    EXPECT_EQ(read_errors(), (Entries{{1, 2, "earlier"}}));
    EXPECT_EQ(hylorn::free_ASN1_SET(node), 0u);
  }
  EXPECT_EQ(hylorn::free_ASN1_SEQUENCE(nullptr), 0u);
}

struct SplitCase {
  const char* decoder;
  const char* der;
  std::vector<const char*> nodes;
};

class ListSplit : public ::testing::TestWithParam<SplitCase> {};

TEST_P(ListSplit, GivesTheComponentsInOrder) {
  const auto& c = GetParam();
  const auto d = decode_exact(c.decoder, from_hex(c.der));
  ASSERT_EQ(d.result, 0u) << ::testing::PrintToString(read_errors());
  std::vector<std::string> got, want;
  for (const auto& n : d.nodes) got.push_back(to_hex(n));
  for (const char* n : c.nodes) want.push_back(to_hex(from_hex(n)));
  EXPECT_EQ(got, want);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, ListSplit,
    ::testing::Values(
        SplitCase{"Sequence", "30 00", {}},
        SplitCase{"Sequence", "30 00 05 00", {}},  // bytes after an empty SEQUENCE ignored
        SplitCase{"Set", "31 00 ff", {}}, SplitCase{"Sequence", "30 80", {}},
        SplitCase{"Sequence", "30 06 02 01 05 04 01 41", {"02 01 05", "04 01 41"}},
        SplitCase{"Set", "31 06 04 01 41 02 01 05", {"04 01 41", "02 01 05"}},
        SplitCase{"Sequence", "30 81 06 02 01 05 04 01 41", {"02 01 05", "04 01 41"}},
        SplitCase{"Sequence",
                  "30 0a 04 81 05 01 02 03 04 05 05 00",
                  {"04 81 05 01 02 03 04 05", "05 00"}},
        SplitCase{"Sequence", "30 04 04 80 05 00", {"04 80", "05 00"}},
        SplitCase{"Set", "31 03 ff 01 00", {"ff 01 00"}},  // component tags are not examined
        SplitCase{"Sequence", "30 05 30 03 02 01 07", {"30 03 02 01 07"}}));

struct WalkCase {
  const char* der;
  int err_no;
};

class ListWalkRefuses : public ::testing::TestWithParam<WalkCase> {};

// Run as SEQUENCE and as SET: the component steps keep their numbers in both.
TEST_P(ListWalkRefuses, FreesTheNodesAndLeavesTheListAlone) {
  const auto& c = GetParam();
  Bytes der = from_hex(c.der);
  for (auto [name, func_no, tag] :
       {std::tuple{"Sequence", 108, u8(0x30)}, {"Set", 110, u8(0x31)}}) {
    der[0] = tag;
    const auto d = decode_exact(name, der);
    EXPECT_EQ(d.result, 1u) << c.der;
    EXPECT_TRUE(d.nodes.empty()) << c.der;  // the adapter notes a written list
    EXPECT_EQ(read_errors(), (Entries{{func_no, c.err_no, "data length"}})) << c.der;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Cases, ListWalkRefuses,
    ::testing::Values(WalkCase{"30 04 02 05 00 00", 9},  // claims 7 where the contents are 4
                      WalkCase{"30 03 02 85 00", 8},     // more than 4 length octets
                      WalkCase{"30 05 02 01 05 04 02",
                               11},  // claims 4, within the contents, past the end
                      WalkCase{"30 06 04 84 ff ff ff ff", 9},        // size wraps 32 bits to 5
                      WalkCase{"30 08 04 84 ff ff ff fa 00 00", 9},  // size wraps 32 bits to 0
                      // Length octets past the end of the contents run past the element: err 11.
                      WalkCase{"30 01 05", 11}, WalkCase{"30 04 02 01 05 04", 11},
                      WalkCase{"30 05 02 01 05 04 84", 11},
                      WalkCase{"30 06 02 01 05 04 82 01", 11}));

}  // namespace
