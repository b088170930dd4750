#include "asn1/der.h"

#include <cstdlib>
#include <cstring>

#include "asn1/der_reader.h"
#include "frame/error.h"

namespace hylorn {
namespace {

// A universal type whose contents go in and out unchanged: one row per type instead of
// one copy of the coder per type.
struct Primitive {
  int encode_fn;  // 0: the library has no encoder for it
  int decode_fn;
  u8 tag;
};

constexpr Primitive kInteger{111, 112, 0x02};
constexpr Primitive kObject{103, 104, 0x06};
constexpr Primitive kOctetString{119, 120, 0x04};
constexpr Primitive kPrintableString{115, 116, 0x13};
constexpr Primitive kT61String{0, 226, 0x14};
constexpr Primitive kIA5String{117, 118, 0x16};
constexpr Primitive kUTCTime{121, 122, 0x17};
constexpr Primitive kGeneralizedTime{123, 124, 0x18};

constexpr u8 kBoolean = 0x01;
constexpr u8 kBitString = 0x03;
constexpr u8 kContextConstructed = 0xA0;

// OBJECT IDENTIFIER names two of its steps differently from the other decoders.
constexpr DerStepErrors kObjectStepErrors = {{{1, "data length less than 2"},
                                              {2, "tag type error"},
                                              {3, "data too length"},
                                              {4, "data length"},
                                              {5, "data length"}}};
// The explicit-tag decoders test the class and the constructed bit as steps 2 and 3, so
// their length steps move up by one.
constexpr DerStepErrors kExplicitStepErrors = {{{1, "data length less than 2"},
                                                {2, "tag type"},
                                                {4, "data length"},
                                                {5, "data length"},
                                                {6, "data length"}}};

// Copies the contents into a new record; empty contents give the empty record.
u32 copy_contents(const ErrorScope& err, int memory_err, const u8* contents, u32 length,
                  DATA_BUFFER* out) {
  if (length == 0) return ini_DATA_BUFFER(out);
  auto* p = static_cast<u8*>(std::malloc(length));
  if (p == nullptr) return err.fail(memory_err, "memory");
  std::memcpy(p, contents, length);
  out->data = p;
  out->length = length;
  return 0;
}

// Encoder steps shared by all: refuse empty contents, then size the element whose
// contents are in_length bytes plus `lead` octets written in front of them.
u32 size_element(const ErrorScope& err, u32 in_length, u32 lead, u32* size) {
  if (in_length == 0) return err.fail(1, "data length equal zero");
  *size = der_element_size(u64{in_length} + lead);
  if (*size == 0) return err.fail(2, "data too length");
  return 0;
}

// Allocates the element and writes its header; *body is where the contents go.
u32 start_element(const ErrorScope& err, int memory_err, u8 tag, u32 contents_length,
                  u32 size, DATA_BUFFER* out, u8** body) {
  auto* p = static_cast<u8*>(std::malloc(size));
  if (p == nullptr) return err.fail(memory_err, "memory");
  *body = write_der_header(p, tag, contents_length);
  out->data = p;
  out->length = size;
  return 0;
}

// tag, length, [*lead], in: the whole pattern of the encoders without extra checks.
u32 encode_element(const ErrorScope& err, u8 tag, DATA_BUFFER in, const u8* lead,
                   DATA_BUFFER* out) {
  const u32 extra = lead != nullptr ? 1 : 0;
  u32 size = 0;
  u8* body = nullptr;
  if (size_element(err, in.length, extra, &size) != 0) return 1;
  if (start_element(err, 3, tag, in.length + extra, size, out, &body) != 0) return 1;
  if (lead != nullptr) *body++ = *lead;
  std::memcpy(body, in.data, in.length);
  return 0;
}

u32 encode_primitive(const Primitive& type, DATA_BUFFER in, DATA_BUFFER* out) {
  ErrorScope err(type.encode_fn);
  return encode_element(err, type.tag, in, nullptr, out);
}

enum class Contents { kAsFound, kDropOneLeadingZero };

u32 decode_primitive(const Primitive& type, u32 total, const u8* der, DATA_BUFFER* out,
                     Contents rule = Contents::kAsFound,
                     const DerStepErrors& errors = kDerStepErrors) {
  ErrorScope err(type.decode_fn);
  DerElement e{};
  const DerStep step = read_der(total, der, type.tag, &e);
  if (step != DerStep::kOk) return fail_step(err, step, errors);
  if (rule == Contents::kDropOneLeadingZero && e.length >= 2 && e.contents[0] == 0) {
    ++e.contents;
    --e.length;
  }
  return copy_contents(err, 6, e.contents, e.length, out);
}

u32 encode_explicit(int func_no, DATA_BUFFER inner, u8 tag, DATA_BUFFER* out) {
  ErrorScope err(func_no);
  return encode_element(err, static_cast<u8>(kContextConstructed | tag), inner, nullptr, out);
}

u32 decode_explicit(int func_no, u32 total, const u8* der, DATA_BUFFER* out, u8* tag) {
  ErrorScope err(func_no);
  if (total < 2) return err.fail(1, "data length less than 2");
  if ((der[0] & 0x80) == 0) return err.fail(2, "tag type");
  if ((der[0] & 0x20) == 0) return err.fail(3, "tag type");
  DerElement e{};
  const DerStep step = read_der_length(total, der, &e);
  if (step != DerStep::kOk) return fail_step(err, step, kExplicitStepErrors);
  if (copy_contents(err, 7, e.contents, e.length, out) != 0) return 1;
  *tag = der[0] & 0x1F;
  return 0;
}

}  // namespace

// INTEGER: the caller's bytes are a magnitude, so a leading bit 7 needs a 0x00 in front
// to keep the value positive.
u32 ASN1_Encode_Integer(DATA_BUFFER in, DATA_BUFFER* out) {
  ErrorScope err(kInteger.encode_fn);
  static constexpr u8 kZero = 0;
  const bool pad = in.length > 0 && (in.data[0] & 0x80) != 0;
  return encode_element(err, kInteger.tag, in, pad ? &kZero : nullptr, out);
}

u32 ASN1_Decode_Integer(u32 total, const u8* der, DATA_BUFFER* out) {
  return decode_primitive(kInteger, total, der, out, Contents::kDropOneLeadingZero);
}

// BOOLEAN ::= 01 01 FF (true) or 01 01 00 (false)
u32 ASN1_Encode_Boolean(u8 value, DATA_BUFFER* out) {
  ErrorScope err(113);
  auto* p = static_cast<u8*>(std::malloc(3));
  if (p == nullptr) return err.fail(1, "memory");
  p[0] = kBoolean;
  p[1] = 1;
  p[2] = value != 0 ? 0xFF : 0x00;
  out->data = p;
  out->length = 3;
  return 0;
}

// A BOOLEAN needs three bytes, yet a shorter one is reported as "less than 2", as
// callers expect. Empty contents (01 81 00) hold no octet to test and read as false.
u32 ASN1_Decode_Boolean(u32 total, const u8* der, u8* out) {
  ErrorScope err(114);
  if (total < 3) return err.fail(1, "data length less than 2");
  DerElement e{};
  const DerStep step = read_der(total, der, kBoolean, &e);
  if (step != DerStep::kOk) return fail_step(err, step, kDerStepErrors);
  *out = (e.length > 0 && e.contents[0] != 0) ? 1 : 0;
  return 0;
}

// BIT STRING contents ::= unused-bits octet (0..7), then the bytes
u32 ASN1_Encode_Bit_String(BIT_DATA_BUFFER in, DATA_BUFFER* out) {
  ErrorScope err(105);
  u32 size = 0;
  u8* body = nullptr;
  if (size_element(err, in.length, 1, &size) != 0) return 1;
  if (in.unusedBits > 7) return err.fail(3, "unusedBits");
  if (start_element(err, 4, kBitString, in.length + 1, size, out, &body) != 0) return 1;
  *body++ = static_cast<u8>(in.unusedBits);
  std::memcpy(body, in.data, in.length);
  return 0;
}

// Empty contents lack the unused-bits octet and are refused like a count above 7.
u32 ASN1_Decode_Bit_String(u32 total, const u8* der, BIT_DATA_BUFFER* out) {
  ErrorScope err(106);
  DerElement e{};
  const DerStep step = read_der(total, der, kBitString, &e);
  if (step != DerStep::kOk) return fail_step(err, step, kDerStepErrors);
  if (e.length == 0 || e.contents[0] > 7) return err.fail(6, "unusedBits");
  DATA_BUFFER bytes{};
  if (copy_contents(err, 7, e.contents + 1, e.length - 1, &bytes) != 0) return 1;
  *out = BIT_DATA_BUFFER{bytes.length, e.contents[0], bytes.data};
  return 0;
}

u32 ASN1_Encode_Object(ASN1_OBJECT_ID obj, DATA_BUFFER* out) {
  return encode_primitive(kObject, obj.oid, out);
}

u32 ASN1_Decode_Object(u32 total, const u8* der, ASN1_OBJECT_ID* out) {
  return decode_primitive(kObject, total, der, &out->oid, Contents::kAsFound, kObjectStepErrors);
}

u32 ASN1_Encode_Octet_String(DATA_BUFFER in, DATA_BUFFER* out) {
  return encode_primitive(kOctetString, in, out);
}
u32 ASN1_Decode_Octet_String(u32 total, const u8* der, DATA_BUFFER* out) {
  return decode_primitive(kOctetString, total, der, out);
}
u32 ASN1_Encode_PrintableString(DATA_BUFFER in, DATA_BUFFER* out) {
  return encode_primitive(kPrintableString, in, out);
}
u32 ASN1_Decode_PrintableString(u32 total, const u8* der, DATA_BUFFER* out) {
  return decode_primitive(kPrintableString, total, der, out);
}
u32 ASN1_Decode_T61String(u32 total, const u8* der, DATA_BUFFER* out) {
  return decode_primitive(kT61String, total, der, out);
}
u32 ASN1_Encode_IA5String(DATA_BUFFER in, DATA_BUFFER* out) {
  return encode_primitive(kIA5String, in, out);
}
u32 ASN1_Decode_IA5String(u32 total, const u8* der, DATA_BUFFER* out) {
  return decode_primitive(kIA5String, total, der, out);
}
u32 ASN1_Encode_UTCTime(DATA_BUFFER in, DATA_BUFFER* out) {
  return encode_primitive(kUTCTime, in, out);
}
u32 ASN1_Decode_UTCTime(u32 total, const u8* der, DATA_BUFFER* out) {
  return decode_primitive(kUTCTime, total, der, out);
}
u32 ASN1_Encode_GeneralizedTime(DATA_BUFFER in, DATA_BUFFER* out) {
  return encode_primitive(kGeneralizedTime, in, out);
}
u32 ASN1_Decode_GeneralizedTime(u32 total, const u8* der, DATA_BUFFER* out) {
  return decode_primitive(kGeneralizedTime, total, der, out);
}

// [n] EXPLICIT inner ::= A0|n, length, the whole inner element
u32 ASN1_Encode_Explicit_Tag(DATA_BUFFER inner, u8 tag, DATA_BUFFER* out) {
  return encode_explicit(125, inner, tag, out);
}
u32 ASN1_Encode_Explicit_Tag_P(const DATA_BUFFER* inner, u8 tag, DATA_BUFFER* out) {
  return encode_explicit(222, inner != nullptr ? *inner : DATA_BUFFER{0, nullptr}, tag, out);
}
u32 ASN1_Decode_Explicit_Tag(u32 total, const u8* der, DATA_BUFFER* out, u8* tag) {
  return decode_explicit(126, total, der, out, tag);
}
u32 ASN1_Decode_Explicit_Tag_P(const DATA_BUFFER* in, DATA_BUFFER* out, u8* tag) {
  return decode_explicit(223, in->length, in->data, out, tag);
}

}  // namespace hylorn
