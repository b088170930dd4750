#include "asn1/list.h"

#include <cstdlib>
#include <cstring>

#include "asn1/der_reader.h"
#include "frame/error.h"
#include "frame/guard.h"

namespace hylorn {
namespace {

// SEQUENCE and SET differ only in tag, function numbers and a few error entries.
struct ListKind {
  int encode_fn;
  int decode_fn;
  int new_fn;
  u8 tag;
  const char* new_msg;  // with a blank, as callers match it
  DerStepErrors steps;
};

constexpr ListKind kSequence{107, 108, 138, 0x30, "new ASN1_SEQUENCE",
                             {{{1, "data length less than 2"},
                               {2, "tag type error"},
                               {3, "data length"},
                               {3, "data length"},
                               {4, "data length"}}}};
constexpr ListKind kSet{109, 110, 141, 0x31, "new ASN1_SET",
                        {{{1, "data length less than 2"},
                          {2, "tag type error"},
                          {3, "data length"},
                          {4, "data length"},
                          {5, "data length"}}}};

// Component failures, the same for both kinds.
constexpr int kErrComponentLengthOctets = 8;
constexpr int kErrComponentTooLong = 9;
constexpr int kErrComponentMemory = 10;
constexpr int kErrPastContents = 11;

u32 new_node(int func_no, ASN1_SEQUENCE** node) {
  const auto err = ErrorScope::keep_list(func_no);
  auto* n = static_cast<ASN1_SEQUENCE*>(std::malloc(sizeof(ASN1_SEQUENCE)));
  if (n == nullptr) return err.fail(1, "malloc");
  n->next = nullptr;
  ini_DATA_BUFFER(&n->value);
  *node = n;
  return 0;
}

u32 encode_list(const ListKind& kind, const ASN1_SEQUENCE* list, DATA_BUFFER* out) {
  ErrorScope err(kind.encode_fn);
  u64 sum = 0;
  for (const ASN1_SEQUENCE* n = list; n != nullptr; n = n->next) sum += n->value.length;
  const u32 size = der_element_size(sum);
  if (size == 0) return err.fail(2, "data too length");
  auto* p = static_cast<u8*>(std::malloc(size));
  if (p == nullptr) return err.fail(list == nullptr ? 1 : 3, "memory");
  u8* body = write_der_header(p, kind.tag, static_cast<u32>(sum));
  for (const ASN1_SEQUENCE* n = list; n != nullptr; n = n->next) {
    if (n->value.length == 0) continue;
    std::memcpy(body, n->value.data, n->value.length);
    body += n->value.length;
  }
  out->data = p;
  out->length = size;
  return 0;
}

// Size of the component at contents[pos ..), or the error number that refuses it. Only
// the contents' own bytes are read. A component whose length octets, or whose announced
// end, lie past the end of the contents runs past the element: err 11, the same answer
// as when the components' sizes fail to add up to the contents length. Only one that
// announces more than the whole contents length is err 9.
int component_size(const DerElement& contents, u32 pos, u32* size) {
  const u32 remaining = contents.length - pos;
  DerHeader h{};
  switch (read_length_octets(remaining, contents.contents + pos, &h)) {
    case DerLength::kTooManyOctets:
      return kErrComponentLengthOctets;
    case DerLength::kBeyondInput:
      return kErrPastContents;
    case DerLength::kOk:
      break;
  }
  const u64 whole = u64{h.header_size} + h.length;
  if (whole > contents.length) return kErrComponentTooLong;
  if (whole > remaining) return kErrPastContents;
  *size = static_cast<u32>(whole);
  return 0;
}

u32 decode_list(const ListKind& kind, u32 total, const u8* der, ASN1_SEQUENCE** list) {
  ErrorScope err(kind.decode_fn);
  // An empty SEQUENCE answers at once, without comparing the total: bytes after 30 00
  // are ignored.
  if (total >= 2 && der[0] == kind.tag && der[1] == 0) {
    *list = nullptr;
    return 0;
  }
  DerElement contents{};
  const DerStep step = read_der(total, der, kind.tag, &contents);
  if (step != DerStep::kOk) return fail_step(err, step, kind.steps);

  ASN1_SEQUENCE* head = nullptr;
  auto free_nodes = on_exit([&] { free_ASN1_SEQUENCE(head); });
  ASN1_SEQUENCE** slot = &head;
  for (u32 pos = 0; pos < contents.length;) {
    if (new_node(kind.new_fn, slot) != 0) return err.fail(head == nullptr ? 6 : 7, kind.new_msg);
    u32 size = 0;
    if (const int refused = component_size(contents, pos, &size); refused != 0) {
      return err.fail(refused, "data length");
    }
    auto* value = static_cast<u8*>(std::malloc(size));
    if (value == nullptr) return err.fail(kErrComponentMemory, "memory");
    std::memcpy(value, contents.contents + pos, size);
    (*slot)->value = DATA_BUFFER{size, value};
    slot = &(*slot)->next;
    pos += size;
  }
  free_nodes.release();
  *list = head;
  return 0;
}

}  // namespace

u32 new_ASN1_SEQUENCE(ASN1_SEQUENCE** node) { return new_node(kSequence.new_fn, node); }
u32 new_ASN1_SET(ASN1_SET** node) { return new_node(kSet.new_fn, node); }

u32 free_ASN1_SEQUENCE(ASN1_SEQUENCE* list) {
  while (list != nullptr) {
    ASN1_SEQUENCE* next = list->next;
    free_DATA_BUFFER(&list->value);
    std::free(list);
    list = next;
  }
  return 0;
}

u32 free_ASN1_SET(ASN1_SET* list) { return free_ASN1_SEQUENCE(list); }

u32 ASN1_Encode_Sequence(const ASN1_SEQUENCE* list, DATA_BUFFER* out) {
  return encode_list(kSequence, list, out);
}
u32 ASN1_Encode_Set(const ASN1_SET* list, DATA_BUFFER* out) { return encode_list(kSet, list, out); }

u32 ASN1_Decode_Sequence(u32 total, const u8* der, ASN1_SEQUENCE** list) {
  return decode_list(kSequence, total, der, list);
}
u32 ASN1_Decode_Set(u32 total, const u8* der, ASN1_SET** list) {
  return decode_list(kSet, total, der, list);
}

}  // namespace hylorn
