#include "asn1/der_reader.h"

namespace hylorn {

DerLength read_length_octets(u32 available, const u8* der, DerHeader* header) {
  if (available < 2) return DerLength::kBeyondInput;
  const u8 first = der[1];
  if (first < 0x80) {
    *header = DerHeader{2, first, false};
    return DerLength::kOk;
  }
  const u32 k = first & 0x7Fu;
  if (k > 4) return DerLength::kTooManyOctets;
  // Decided before reading them: the k octets must lie within what we were given.
  if (2 + k > available) return DerLength::kBeyondInput;
  u32 length = 0;
  for (u32 i = 0; i < k; ++i) length = (length << 8) | der[2 + i];
  *header = DerHeader{2 + k, length, true};
  return DerLength::kOk;
}

DerStep read_der_length(u32 total, const u8* der, DerElement* element) {
  DerHeader h{};
  switch (read_length_octets(total, der, &h)) {
    case DerLength::kTooManyOctets:
      return DerStep::kLengthOctets;
    case DerLength::kBeyondInput:  // only a long form can reach past a total of 2 or more
      return DerStep::kLongFormTotal;
    case DerLength::kOk:
      break;
  }
  // 64 bits: a 4-octet length near 2^32 plus the header must not wrap onto the total.
  if (u64{h.header_size} + h.length != total) {
    return h.long_form ? DerStep::kLongFormTotal : DerStep::kShortFormTotal;
  }
  *element = DerElement{der[0], der + h.header_size, h.length};
  return DerStep::kOk;
}

DerStep read_der(u32 total, const u8* der, u8 tag, DerElement* element) {
  if (total < 2) return DerStep::kShortTotal;
  if (der[0] != tag) return DerStep::kBadTag;
  return read_der_length(total, der, element);
}

u32 fail_step(const ErrorScope& err, DerStep step, const DerStepErrors& errors) {
  const u32 index = static_cast<u32>(step) - 1;  // kOk is not a failure and never passed
  const StepError& e = errors.step[index < 5 ? index : 4];
  return err.fail(e.err_no, e.msg);
}

u32 length_of_length(u32 n) {
  if (n < 0x80) return 1;
  u32 octets = 1;
  while (octets < 4 && (n >> (8 * octets)) != 0) ++octets;
  return 1 + octets;
}

u32 der_element_size(u64 n) {
  if (n > 0xFFFFFFFFu) return 0;
  const u64 size = 1 + length_of_length(static_cast<u32>(n)) + n;
  return size > 0xFFFFFFFFu ? 0 : static_cast<u32>(size);
}

u8* write_length_octets(u8* p, u32 n) {
  const u32 count = length_of_length(n);
  if (count == 1) {
    *p++ = static_cast<u8>(n);
    return p;
  }
  *p++ = static_cast<u8>(0x80 | (count - 1));
  for (u32 i = count - 1; i > 0; --i) *p++ = static_cast<u8>(n >> (8 * (i - 1)));
  return p;
}

}  // namespace hylorn
