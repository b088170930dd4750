// Guards for the element lists the field coders build and split. An encoder appends one
// node per component and fills its value; a decoder walks the components of a split
// element in order. Either way the list is freed on every exit path.
#pragma once

#include "asn1/list.h"
#include "frame/buffer.h"

namespace hylorn {

// A list under construction, freed when the guard goes unless it was never filled.
class ElementList {
 public:
  ElementList() = default;
  ElementList(const ElementList&) = delete;
  ElementList& operator=(const ElementList&) = delete;
  ~ElementList() { free_ASN1_SEQUENCE(head_); }

  // Appends an empty node and returns its value for an encoder to fill; null when the
  // node cannot be allocated (new_ASN1_SEQUENCE has then said so).
  DATA_BUFFER* append() {
    if (new_ASN1_SEQUENCE(tail_) != 0) return nullptr;
    DATA_BUFFER* value = &(*tail_)->value;
    tail_ = &(*tail_)->next;
    return value;
  }

  const ASN1_SEQUENCE* head() const { return head_; }

 private:
  ASN1_SEQUENCE* head_ = nullptr;
  ASN1_SEQUENCE** tail_ = &head_;
};

// The components of one split element, read front to back.
class SplitElement {
 public:
  SplitElement() = default;
  SplitElement(const SplitElement&) = delete;
  SplitElement& operator=(const SplitElement&) = delete;
  ~SplitElement() { free_ASN1_SEQUENCE(head_); }

  // Where ASN1_Decode_Sequence / ASN1_Decode_Set put the list.
  ASN1_SEQUENCE** out() { return &head_; }
  const ASN1_SEQUENCE* head() const { return head_; }

  // The next component not read yet, or null when the list has run out. The list owns
  // its copies of the components, so a decoder may rewrite them in place.
  DATA_BUFFER* next() {
    ASN1_SEQUENCE* node = cursor_ == nullptr ? head_ : cursor_->next;
    if (node == nullptr) return nullptr;
    cursor_ = node;
    return &node->value;
  }

 private:
  ASN1_SEQUENCE* head_ = nullptr;
  ASN1_SEQUENCE* cursor_ = nullptr;
};

}  // namespace hylorn
