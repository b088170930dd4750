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

using hylorn::DATA_BUFFER;
using hylorn::u32;
using hylorn_test::ErrEntry;
using hylorn_test::from_hex;
using hylorn_test::read_errors;
using Entries = std::vector<ErrEntry>;

// expected[n - 1]: the entries when the n-th malloc fails. call frees what it got.
void each_malloc_fails_cleanly(const std::string& name, const std::function<u32()>& call,
                               const std::vector<Entries>& expected) {
  SCOPED_TRACE(name);
  for (std::size_t n = 1;; ++n) {
    hylorn_test::clear_errors();
    u32 result;
    bool fired;
    {
      hylorn_test::FailNthMalloc fail{static_cast<int>(n)};
      result = call();
      fired = fail.fired();
    }
    if (!fired) {  // fewer than n allocations: the call must have succeeded
      EXPECT_EQ(result, 0u);
      EXPECT_EQ(n - 1, expected.size()) << "number of allocations";
      return;
    }
    ASSERT_LE(n, expected.size());
    EXPECT_EQ(result, 1u) << n;
    EXPECT_EQ(read_errors(), expected[n - 1]) << n;
  }
}

// Runs f(&out) and frees out.
u32 freeing(const std::function<u32(DATA_BUFFER*)>& f) {
  DATA_BUFFER out{0, nullptr};
  const u32 r = f(&out);
  hylorn::free_DATA_BUFFER(&out);
  return r;
}

// Guards the "memory" entry of every primitive coder; the list decoders allocate a node
// and a value per component, and report the head node differently from later ones.
TEST(AllocFailure, Coders) {
  asn1_test::TestBmpTable table;
  for (const auto& e : asn1_test::encoders()) {
    each_malloc_fails_cleanly(std::string("encode ") + e.name,
                              [&e] { return asn1_test::encode(e, from_hex("80 01")).result; },
                              {{{e.func_no, e.func_no == 105 ? 4 : 3, "memory"}}});
  }
  for (const auto& d : asn1_test::decoders()) {
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
    each_malloc_fails_cleanly(
        std::string("decode ") + d.name,
        [&d] { return asn1_test::decode_exact(d, from_hex(d.sample)).result; }, expected);
  }
}

// Guards the other allocating functions: BOOLEAN and list encoders (the empty list
// reports 1, a non-empty one 3), the node records, and the OID copy inside the look-up
// and inside u2l_signature, which must leave the record empty on failure.
TEST(AllocFailure, BooleanListsNodesAndLookups) {
  each_malloc_fails_cleanly(
      "encode Boolean",
      [] { return freeing([](DATA_BUFFER* o) { return hylorn::ASN1_Encode_Boolean(1, o); }); },
      {{{113, 1, "memory"}}});
  hylorn::u8 element[] = {0x05, 0x00};
  const hylorn::ASN1_SEQUENCE node{nullptr, {2, element}};
  for (auto [encode_list, fn] :
       {std::pair{&hylorn::ASN1_Encode_Sequence, 107}, {&hylorn::ASN1_Encode_Set, 109}}) {
    for (const hylorn::ASN1_SEQUENCE* list :
         {static_cast<const hylorn::ASN1_SEQUENCE*>(nullptr), &node}) {
      each_malloc_fails_cleanly(
          "encode list " + std::to_string(fn),
          [&] { return freeing([&](DATA_BUFFER* o) { return encode_list(list, o); }); },
          {{{fn, list == nullptr ? 1 : 3, "memory"}}});
    }
  }
  for (auto [make, fn] :
       {std::pair{&hylorn::new_ASN1_SEQUENCE, 138}, {&hylorn::new_ASN1_SET, 141}}) {
    each_malloc_fails_cleanly("new node " + std::to_string(fn),
                              [make = make] {
                                hylorn::ASN1_SEQUENCE* n = nullptr;
                                const u32 r = make(&n);
                                hylorn::free_ASN1_SEQUENCE(n);
                                return r;
                              },
                              {{{fn, 1, "malloc"}}});
  }
  const Entries copy_failed = {{132, 1, "malloc"}, {101, 2, "copy DATA_BUFFER"}};
  each_malloc_fails_cleanly("find object id",
                            [] {
                              hylorn::ASN1_OBJECT_ID obj{61, {0, nullptr}};
                              const u32 r = hylorn::ASN1_Find_Object_ID(&obj);
                              hylorn::free_ASN1_OBJECT_ID(&obj);
                              return r;
                            },
                            {copy_failed});
  Entries in_u2l = copy_failed;
  in_u2l.push_back({303, 2, "ASN1_Find_Object_ID"});
  each_malloc_fails_cleanly("u2l_signature",
                            [] {
                              hylorn::USER_X509_ALG_ID user{};
                              user.algorithm = 3;
                              user.parametersLength = 2;
                              hylorn::X509_ALG_ID alg;
                              hylorn::ini_X509_ALG_ID(&alg);
                              const u32 r = hylorn::u2l_signature(&user, &alg);
                              if (r != 0) {
                                EXPECT_EQ(alg.algorithm.oid.data, nullptr);
                                EXPECT_EQ(alg.parameters.data, nullptr);
                              }
                              hylorn::free_X509_ALG_ID(&alg);
                              return r;
                            },
                            {in_u2l, {{303, 3, "malloc"}}});
}

}  // namespace
