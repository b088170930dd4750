// Allocation failures: each malloc of each allocating function fails in turn; the
// function answers 1 with the entries below and leaves nothing allocated (the sanitizer
// build checks for leaks).
#include <gtest/gtest.h>

#include <string>

#include "asn1/algorithm.h"
#include "asn1/der.h"
#include "asn1/list.h"
#include "coders.h"
#include "support/alloc_failure.h"
#include "support/hex.h"

namespace {

using hylorn::DATA_BUFFER;
using hylorn::u32;
using namespace hylorn_test;

// Guards the "memory" entry of every primitive coder; the list decoders allocate a node
// and a value per component, and report the head node differently from later ones.
TEST(AllocFailure, Coders) {
  asn1_test::load_test_bmp_table();
  for (const auto& e : asn1_test::encoders()) {
    SCOPED_TRACE(e.name);
    expect_each_malloc_failure([&e] { return asn1_test::encode(e, from_hex("80 01")).result; },
                               {{{e.func_no, e.func_no == 105 ? 4 : 3, "memory"}}});
  }
  for (const auto& d : asn1_test::decoders()) {
    SCOPED_TRACE(d.name);
    std::vector<Entries> expected;
    if (d.func_no == 108 || d.func_no == 110) {
      const bool seq = d.func_no == 108;
      const ErrEntry node{seq ? 138 : 141, 1, "malloc"}, value{d.func_no, 10, "memory"};
      const char* msg = seq ? "new ASN1_SEQUENCE" : "new ASN1_SET";
      expected = {{node, {d.func_no, 6, msg}}, {value}, {node, {d.func_no, 7, msg}}, {value}};
    } else if (d.func_no != 114) {  // BOOLEAN allocates nothing
      const bool seven = d.func_no == 106 || d.func_no == 126 || d.func_no == 223;
      expected = {{{d.func_no, seven ? 7 : 6, "memory"}}};
    }
    expect_each_malloc_failure(
        [&d] { return asn1_test::decode_exact(d, from_hex(d.sample)).result; }, expected);
  }
}

// Runs f(&out) and frees out.
template <class F>
u32 freeing(F f) {
  DATA_BUFFER out{0, nullptr};
  const u32 r = f(&out);
  hylorn::free_DATA_BUFFER(&out);
  return r;
}

// Guards the other allocating functions: BOOLEAN and list encoders (the empty list
// reports 1, a non-empty one 3), the node records, which keep the caller's list, and
// the OID copy inside the look-up and inside u2l_signature, which must leave the record
// empty on failure.
TEST(AllocFailure, BooleanListsNodesAndLookups) {
  expect_each_malloc_failure(
      [] { return freeing([](DATA_BUFFER* o) { return hylorn::ASN1_Encode_Boolean(1, o); }); },
      {{{113, 1, "memory"}}});
  hylorn::u8 element[] = {0x05, 0x00};
  const hylorn::ASN1_SEQUENCE one{nullptr, {2, element}};
  for (auto [encode, make, fn] :
       {std::tuple{&hylorn::ASN1_Encode_Sequence, &hylorn::new_ASN1_SEQUENCE, 107},
        {&hylorn::ASN1_Encode_Set, &hylorn::new_ASN1_SET, 109}}) {
    for (const hylorn::ASN1_SEQUENCE* list : {&one, static_cast<decltype(&one)>(nullptr)}) {
      expect_each_malloc_failure(
          [encode = encode, list] {
            return freeing([&](DATA_BUFFER* o) { return encode(list, o); });
          },
          {{{fn, list ? 3 : 1, "memory"}}});
    }
    expect_each_malloc_failure(
        [make = make] {
          hylorn::ASN1_SEQUENCE* n = nullptr;
          const u32 r = make(&n);
          hylorn::free_ASN1_SEQUENCE(n);
          return r;
        },
        {{kEarlierEntry, {fn == 107 ? 138 : 141, 1, "malloc"}}});
  }
  const ErrEntry copy{132, 1, "malloc"}, find{101, 2, "copy DATA_BUFFER"};
  expect_each_malloc_failure(
      [] {
        hylorn::ASN1_OBJECT_ID obj{61, {0, nullptr}};
        const u32 r = hylorn::ASN1_Find_Object_ID(&obj);
        hylorn::free_ASN1_OBJECT_ID(&obj);
        return r;
      },
      {{copy, find}});
  expect_each_malloc_failure(
      [] {
        hylorn::USER_X509_ALG_ID user{};
        user.algorithm = 3;
        user.parametersLength = 2;
        hylorn::X509_ALG_ID alg;
        hylorn::ini_X509_ALG_ID(&alg);
        const u32 r = hylorn::u2l_signature(&user, &alg);
        EXPECT_TRUE(r == 0 ||
                    (alg.algorithm.oid.data == nullptr && alg.parameters.data == nullptr));
        hylorn::free_X509_ALG_ID(&alg);
        return r;
      },
      {{copy, find, {303, 2, "ASN1_Find_Object_ID"}}, {{303, 3, "malloc"}}});
}

}  // namespace
