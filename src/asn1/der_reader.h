// The one place that reads and writes the header of a DER element: the tag octet, the
// definite length octets, and the check that the element fills the bytes it was given.
//
// Every decoder runs the same steps in the same order and differs only in the error
// number it reports for each, so the reader answers with the step that failed and the
// decoder maps it. The reader touches only der[0 .. total), whatever the input claims.
//
//   identifier octet | 0..127 (short form)                  | contents
//                    | 0x80|k, then k octets, big-endian     |
#pragma once

#include "frame/error.h"
#include "frame/types.h"

namespace hylorn {

// The step at which an element was refused, in the order the steps run.
enum class DerStep : u8 {
  kOk,
  kShortTotal,      // fewer than 2 bytes
  kBadTag,          // identifier octet is not the one expected
  kLengthOctets,    // long form announcing more than 4 length octets
  kLongFormTotal,   // long form: 2 + k + length differs from the total (or k octets missing)
  kShortFormTotal,  // short form: 2 + length differs from the total
};

// The contents of an element that passed every step.
struct DerElement {
  u8 tag;
  const u8* contents;  // inside the caller's bytes, right after the length octets
  u32 length;          // contents length
};

// Result of reading length octets without knowing where the element ends.
enum class DerLength : u8 {
  kOk,
  kTooManyOctets,  // 0x80|k with k > 4
  kBeyondInput,    // the length octets do not lie within the bytes available
};

struct DerHeader {
  u32 header_size;  // identifier octet + length octets (2 to 6)
  u32 length;       // contents length as announced
  bool long_form;
};

// Reads the length octets of the element at der, touching only der[0 .. available).
// 0x80 alone reads as length 0; leading zero octets and non-minimal forms are accepted.
DerLength read_length_octets(u32 available, const u8* der, DerHeader* header);

// The length and total steps for an element of total bytes (total >= 2, tag already
// checked): kOk, kLengthOctets, kLongFormTotal or kShortFormTotal.
DerStep read_der_length(u32 total, const u8* der, DerElement* element);

// All steps for an element whose identifier octet must be tag.
DerStep read_der(u32 total, const u8* der, u8 tag, DerElement* element);

// The (err_no, err_msg) a decoder reports for each step the reader can fail at.
struct StepError {
  int err_no;
  const char* msg;
};
struct DerStepErrors {
  StepError step[5];  // kShortTotal, kBadTag, kLengthOctets, kLongFormTotal, kShortFormTotal
};

// The entries of most decoders: 1 to 5 in step order.
inline constexpr DerStepErrors kDerStepErrors = {{{1, "data length less than 2"},
                                                  {2, "tag type"},
                                                  {3, "data length"},
                                                  {4, "data length"},
                                                  {5, "data length"}}};

// Appends the entry for a failed step (not kOk) under err's function number; returns 1.
u32 fail_step(const ErrorScope& err, DerStep step, const DerStepErrors& errors);

// Number of length octets the encoders write for a contents length n: 1 for n < 128,
// else 1 + the count of significant octets of n (2 to 5).
u32 length_of_length(u32 n);

// Size of a whole element with n contents octets (identifier, length octets, contents),
// or 0 when it would not fit the 32-bit lengths of the records.
u32 der_element_size(u64 n);

// Writes the length octets for n at p; returns the position after them.
u8* write_length_octets(u8* p, u32 n);

// Writes tag and length octets for n at p; returns where the contents go.
inline u8* write_der_header(u8* p, u8 tag, u32 n) {
  *p = tag;
  return write_length_octets(p + 1, n);
}

}  // namespace hylorn
