// A guard around one ASN1_SEQUENCE list: the components of a constructed value being
// built (appended in order) or the components of one being read. Whatever the list
// holds is freed when the guard goes, on every path.
#pragma once

#include "asn1/list.h"
#include "frame/buffer.h"
#include "frame/types.h"

namespace hylorn {

class ElementList {
 public:
  ElementList() = default;
  ElementList(const ElementList&) = delete;
  ElementList& operator=(const ElementList&) = delete;
  ~ElementList() { free_ASN1_SEQUENCE(head_); }

  // Takes the element over into a new last node; 1 when no node can be made, and the
  // element is then freed. Either way *element is left empty.
  u32 add(DATA_BUFFER* element) {
    ASN1_SEQUENCE* node = nullptr;
    if (new_ASN1_SEQUENCE(&node) != 0) {
      free_DATA_BUFFER(element);
      return 1;
    }
    node->value = *element;
    ini_DATA_BUFFER(element);
    *tail_ = node;
    tail_ = &node->next;
    return 0;
  }

  // 30, length, then the components in order.
  u32 encode(DATA_BUFFER* out) const { return ASN1_Encode_Sequence(head_, out); }

  // Cuts one whole SEQUENCE into its components; the list must be empty.
  u32 split(u32 total, const u8* der) {
    if (ASN1_Decode_Sequence(total, der, &head_) != 0) return 1;
    tail_ = &head_;
    while (*tail_ != nullptr) tail_ = &(*tail_)->next;
    return 0;
  }

  // Hands the list over to the caller, leaving the guard empty.
  ASN1_SEQUENCE* release() {
    ASN1_SEQUENCE* list = head_;
    head_ = nullptr;
    tail_ = &head_;
    return list;
  }

  const ASN1_SEQUENCE* head() const { return head_; }
  bool empty() const { return head_ == nullptr; }

 private:
  ASN1_SEQUENCE* head_ = nullptr;
  ASN1_SEQUENCE** tail_ = &head_;
};

}  // namespace hylorn
