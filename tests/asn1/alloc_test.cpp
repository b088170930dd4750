// Allocation failures: the n-th malloc of each allocating function fails in turn; the
// function answers 1 with the entries below, and leaves nothing allocated (the
// sanitizer build checks for leaks).
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "asn1/algorithm.h"
#include "asn1/der.h"
#include "asn1/list.h"
#include "coders.h"
#include "support/error_list.h"
#include "support/fail_malloc.h"
#include "support/hex.h"

namespace {

using asn1_test::Bytes;
using hylorn::u32;
using hylorn_test::ErrEntry;
using hylorn_test::from_hex;
using hylorn_test::read_errors;
using Entries = std::vector<ErrEntry>;

struct AllocCase {
  std::string name;
  std::function<u32()> call;      // frees whatever it got on success
  std::vector<Entries> expected;  // entries when the 1st, 2nd, ... malloc fails
};

class AllocFailure : public ::testing::TestWithParam<AllocCase> {};

TEST_P(AllocFailure, EachMallocFailsCleanly) {
  asn1_test::TestBmpTable table;
  const auto& c = GetParam();
  for (std::size_t n = 1;; ++n) {
    hylorn_test::clear_errors();
    u32 result;
    bool fired;
    {
      hylorn_test::FailNthMalloc fail{static_cast<int>(n)};
      result = c.call();
      fired = fail.fired();
    }
    if (!fired) {  // the call made fewer than n allocations and must have succeeded
      EXPECT_EQ(result, 0u);
      EXPECT_EQ(n - 1, c.expected.size()) << "number of allocations";
      break;
    }
    ASSERT_LE(n, c.expected.size());
    EXPECT_EQ(result, 1u) << n;
    EXPECT_EQ(read_errors(), c.expected[n - 1]) << n;
  }
}

const Entries kNewSequenceHead = {{138, 1, "malloc"}, {108, 6, "new ASN1_SEQUENCE"}};

std::vector<AllocCase> cases() {
  std::vector<AllocCase> all;
  for (const auto& e : asn1_test::encoders()) {
    all.push_back({std::string("Encode") + e.name,
                   [&e] { return asn1_test::encode(e, from_hex("80 01")).result; },
                   {{{e.func_no, e.func_no == 105 ? 4 : 3, "memory"}}}});
  }
  const std::pair<const char*, const char*> decoded[] = {
      {"Integer", "02 01 05"},         {"BitString", "03 02 00 ff"},
      {"Object", "06 01 2a"},          {"OctetString", "04 01 41"},
      {"PrintableString", "13 01 41"}, {"T61String", "14 01 41"},
      {"IA5String", "16 01 41"},       {"UTCTime", "17 01 41"},
      {"GeneralizedTime", "18 01 41"}, {"BMPString", "1e 02 4e 2d"},
      {"ExplicitTag", "a1 02 05 00"},  {"ExplicitTagP", "a1 02 05 00"},
  };
  for (auto [name, der] : decoded) {
    const auto& d = asn1_test::decoder(name);
    const int memory = d.func_no == 106 || d.func_no == 126 || d.func_no == 223 ? 7 : 6;
    all.push_back({std::string("Decode") + name,
                   [&d, der = der] { return asn1_test::decode_exact(d, from_hex(der)).result; },
                   {{{d.func_no, memory, "memory"}}}});
  }
  all.push_back({"EncodeBoolean",
                 [] {
                   hylorn::DATA_BUFFER out{0, nullptr};
                   const u32 r = hylorn::ASN1_Encode_Boolean(1, &out);
                   hylorn::free_DATA_BUFFER(&out);
                   return r;
                 },
                 {{{113, 1, "memory"}}}});
  for (auto [name, encode_list, fn] : {std::tuple{"Sequence", &hylorn::ASN1_Encode_Sequence, 107},
                                       std::tuple{"Set", &hylorn::ASN1_Encode_Set, 109}}) {
    all.push_back({std::string("EncodeEmpty") + name,
                   [encode_list = encode_list] {
                     hylorn::DATA_BUFFER out{0, nullptr};
                     const u32 r = encode_list(nullptr, &out);
                     hylorn::free_DATA_BUFFER(&out);
                     return r;
                   },
                   {{{fn, 1, "memory"}}}});
    all.push_back({std::string("Encode") + name,
                   [encode_list = encode_list] {
                     hylorn::u8 element[] = {0x05, 0x00};
                     const hylorn::ASN1_SEQUENCE node{nullptr, {2, element}};
                     hylorn::DATA_BUFFER out{0, nullptr};
                     const u32 r = encode_list(&node, &out);
                     hylorn::free_DATA_BUFFER(&out);
                     return r;
                   },
                   {{{fn, 3, "memory"}}}});
  }
  // Node, value, node, value: the head node, then the later node, report differently.
  for (auto [name, tag, new_fn, fn, msg] :
       {std::tuple{"Sequence", "30", 138, 108, "new ASN1_SEQUENCE"},
        std::tuple{"Set", "31", 141, 110, "new ASN1_SET"}}) {
    const std::string der = std::string(tag) + "06 02 01 05 04 01 41";
    all.push_back(
        {std::string("Decode") + name,
         [name = name, der] { return asn1_test::decode_exact(name, from_hex(der)).result; },
         {{{new_fn, 1, "malloc"}, {fn, 6, msg}},
          {{fn, 10, "memory"}},
          {{new_fn, 1, "malloc"}, {fn, 7, msg}},
          {{fn, 10, "memory"}}}});
  }
  for (auto [name, make, fn] : {std::tuple{"NewSequence", &hylorn::new_ASN1_SEQUENCE, 138},
                                std::tuple{"NewSet", &hylorn::new_ASN1_SET, 141}}) {
    all.push_back({name,
                   [make = make] {
                     hylorn::ASN1_SEQUENCE* node = nullptr;
                     const u32 r = make(&node);
                     hylorn::free_ASN1_SEQUENCE(node);
                     return r;
                   },
                   {{{fn, 1, "malloc"}}}});
  }
  all.push_back({"FindObjectId",
                 [] {
                   hylorn::ASN1_OBJECT_ID obj{61, {0, nullptr}};
                   const u32 r = hylorn::ASN1_Find_Object_ID(&obj);
                   hylorn::free_ASN1_OBJECT_ID(&obj);
                   return r;
                 },
                 {{{132, 1, "malloc"}, {101, 2, "copy DATA_BUFFER"}}}});
  all.push_back(
      {"U2lSignature",
       [] {
         hylorn::USER_X509_ALG_ID user{};
         user.algorithm = 3;
         user.parametersLength = 2;
         hylorn::X509_ALG_ID alg;
         hylorn::ini_X509_ALG_ID(&alg);
         const u32 r = hylorn::u2l_signature(&user, &alg);
         if (r != 0) {  // a failed conversion leaves the record empty
           EXPECT_EQ(alg.algorithm.oid.data, nullptr);
           EXPECT_EQ(alg.parameters.data, nullptr);
         }
         hylorn::free_X509_ALG_ID(&alg);
         return r;
       },
       {{{132, 1, "malloc"}, {101, 2, "copy DATA_BUFFER"}, {303, 2, "ASN1_Find_Object_ID"}},
        {{303, 3, "malloc"}}}});
  return all;
}

INSTANTIATE_TEST_SUITE_P(Functions, AllocFailure, ::testing::ValuesIn(cases()),
                         [](const auto& info) { return info.param.name; });

}  // namespace
