#include "x509/time.h"

#include <cstring>

#include "asn1/der.h"
#include "frame/error.h"
#include "x509/field_list.h"

namespace hylorn {
namespace {

constexpr int kFnEncodeTime = 224;
constexpr int kFnDecodeTime = 225;
constexpr int kFnEncodeValidity = 209;
constexpr int kFnDecodeValidity = 210;
constexpr int kFnUserToValidity = 307;
constexpr int kFnValidityToUser = 308;

constexpr u8 kUtcTime = 0;
constexpr u8 kGeneralizedTime = 1;
constexpr u8 kUtcTimeTag = 0x17;
constexpr u8 kGeneralizedTimeTag = 0x18;

constexpr u32 kDigits = 14;  // YYYYMMDDHHMMSS
constexpr int kFirstGeneralizedYear = 2050;
constexpr int kLastTwentiethYear = 50;  // UTCTime YY above this is 19YY

// The leading decimal digits of at most n characters, stopping at the NUL; no check.
int leading_number(const char* text, u32 n) {
  int value = 0;
  for (u32 i = 0; i < n && text[i] >= '0' && text[i] <= '9'; ++i)
    value = value * 10 + (text[i] - '0');
  return value;
}

// Copies at most n characters, stopping at the NUL; returns how many.
u32 copy_text(char* dst, const char* src, u32 n) {
  const u32 length = static_cast<u32>(strnlen(src, n));
  std::memcpy(dst, src, length);
  return length;
}

// The contents of a time element of the tag's kind into time; the error numbers of a
// caller start at base (its own "missing" number): base + 1, 2 the primitive decoders,
// base + 3 a tag that is no time, base + 4 text too long for the record.
u32 decode_time(const ErrorScope& err, int base, u32 total, const u8* der, X509_TIME* time) {
  const u8 tag = total > 0 ? der[0] : 0;
  DATA_BUFFER text{};
  if (tag == kUtcTimeTag) {
    if (ASN1_Decode_UTCTime(total, der, &text) != 0)
      return err.fail(base + 1, "ASN1_Decode_UTCTime");
    time->type = kUtcTime;
  } else if (tag == kGeneralizedTimeTag) {
    if (ASN1_Decode_GeneralizedTime(total, der, &text) != 0) {
      return err.fail(base + 2, "ASN1_Decode_GeneralizedTime");
    }
    time->type = kGeneralizedTime;
  } else {
    return err.fail(base + 3, "");
  }
  const bool fits = text.length <= kTimeTextMax;
  if (fits && text.length > 0) std::memcpy(time->text, text.data, text.length);
  time->text[fits ? text.length : 0] = '\0';
  free_DATA_BUFFER(&text);
  if (!fits) return err.fail(base + 4, "data too length");
  return 0;
}

}  // namespace

// Time ::= CHOICE { utcTime UTCTime, generalTime GeneralizedTime }
u32 Der_Encode_X509_TIME(const X509_TIME* time, DATA_BUFFER* out) {
  ErrorScope err(kFnEncodeTime);
  const auto length = static_cast<u32>(strnlen(time->text, kTimeTextMax));
  const DATA_BUFFER text{length, reinterpret_cast<u8*>(const_cast<char*>(time->text))};
  if (time->type == kUtcTime) {
    if (ASN1_Encode_UTCTime(text, out) != 0) return err.fail(2, "ASN1_Encode_UTCTime");
    return 0;
  }
  if (time->type == kGeneralizedTime) {
    if (ASN1_Encode_GeneralizedTime(text, out) != 0) {
      return err.fail(4, "ASN1_Encode_GeneralizedTime");
    }
    return 0;
  }
  return err.fail(5, "");
}

u32 Der_Decode_X509_TIME(u32 total, const u8* der, X509_TIME* time) {
  ErrorScope err(kFnDecodeTime);
  return decode_time(err, 3, total, der, time);
}

// Validity ::= SEQUENCE { notBefore Time, notAfter Time }
u32 Der_Encode_Validity(const X509_VALIDITY* validity, DATA_BUFFER* out) {
  ErrorScope err(kFnEncodeValidity);
  FieldBuilder times;
  DATA_BUFFER* before = times.append();
  if (before == nullptr) return err.fail(1, "new_ASN1_SEQUENCE");
  if (Der_Encode_X509_TIME(&validity->notBefore, before) != 0) {
    return err.fail(2, "Der_Encode_X509_TIME");
  }
  DATA_BUFFER* after = times.append();
  if (after == nullptr) return err.fail(3, "new_ASN1_SEQUENCE");
  if (Der_Encode_X509_TIME(&validity->notAfter, after) != 0) {
    return err.fail(4, "Der_Encode_X509_TIME");
  }
  if (ASN1_Encode_Sequence(times.head(), out) != 0) return err.fail(5, "ASN1_Encode_Sequence");
  return 0;
}

u32 Der_Decode_Validity(u32 total, const u8* der, X509_VALIDITY* validity) {
  ErrorScope err(kFnDecodeValidity);
  FieldReader times;
  if (ASN1_Decode_Sequence(total, der, times.out()) != 0) {
    return err.fail(2, "ASN1_Decode_Sequence");
  }
  const DATA_BUFFER* before = times.next();
  if (before == nullptr) return err.fail(3, "");
  if (decode_time(err, 3, before->length, before->data, &validity->notBefore) != 0) return 1;
  const DATA_BUFFER* after = times.next();
  if (after == nullptr) return err.fail(8, "");
  return decode_time(err, 8, after->length, after->data, &validity->notAfter);
}

u32 u2l_X509_TIME(const char* text, X509_TIME* time) {
  if (text == nullptr) text = "";
  char* end = time->text;
  if (leading_number(text, 4) >= kFirstGeneralizedYear) {
    time->type = kGeneralizedTime;
    end += copy_text(end, text, kDigits);
  } else {
    // UTCTime keeps YYMMDDHHMMSS: the digits from the third character on.
    time->type = kUtcTime;
    const u32 century = static_cast<u32>(strnlen(text, 2));
    end += copy_text(end, text + century, kDigits - 2);
  }
  *end++ = 'Z';
  *end = '\0';
  return 0;
}

u32 l2u_X509_TIME(const X509_TIME* time, char text[kTimeTextSize]) {
  u32 length = 0;
  if (time->type == kUtcTime) {
    const bool twenty_first = leading_number(time->text, 2) <= kLastTwentiethYear;
    std::memcpy(text, twenty_first ? "20" : "19", 2);
    length = 2 + copy_text(text + 2, time->text, kDigits - 2);
  } else if (time->type == kGeneralizedTime) {
    length = copy_text(text, time->text, kDigits);
  } else {
    return 1;
  }
  text[length] = '\0';
  return 0;
}

u32 u2l_X509_VALIDITY(const char* notBefore, const char* notAfter, X509_VALIDITY* validity) {
  [[maybe_unused]] ErrorScope err(kFnUserToValidity);  // never fails, but empties the list
  u2l_X509_TIME(notBefore, &validity->notBefore);
  return u2l_X509_TIME(notAfter, &validity->notAfter);
}

u32 l2u_X509_VALIDITY(X509_VALIDITY validity, char notBefore[kTimeTextSize],
                      char notAfter[kTimeTextSize]) {
  ErrorScope err(kFnValidityToUser);
  if (l2u_X509_TIME(&validity.notBefore, notBefore) != 0)
    return err.fail(63, "ASN1_Find_Object_ID");
  if (l2u_X509_TIME(&validity.notAfter, notAfter) != 0) return err.fail(63, "ASN1_Find_Object_ID");
  return 0;
}

}  // namespace hylorn
