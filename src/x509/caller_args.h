// Moving the exported functions' flat arguments into the caller records and back. Every
// copy is bounded by its field: a text or octet string that does not fit is refused,
// never cut and never written past the field. Certificates, CRLs and requests share
// these, and the sixteen name slots that travel as separate arguments.
#pragma once

#include <array>
#include <cstddef>
#include <cstring>

#include "frame/error.h"
#include "frame/types.h"
#include "x509/records.h"

// The sixteen name arguments of HYLORN_NAME_IN / HYLORN_NAME_OUT, in slot order.
#define HYLORN_NAME_SLOTS(p)                                                            \
  p##C, p##O, p##OU, p##ST, p##CN, p##L, p##Title, p##SN, p##GN, p##Initials, p##Email, \
      p##PostalAddress, p##PostalCode, p##PostOfficeBox, p##Telephone, p##Telex

namespace hylorn {

// A refused argument leaves one entry, so that the caller's error list says why the
// call failed: (322, 1, ...) for a text, (322, 2, ...) for octets, alone in the list.
inline constexpr int kFnCallerArgument = 322;

using NameIn = std::array<const char*, kNameSlots>;
using NameOut = std::array<char*, kNameSlots>;

// ---- into a caller record ------------------------------------------------------------

// A text and its NUL into a field of size bytes; null reads as empty. False when it
// does not fit (the field is then untouched).
inline bool put_text(const char* text, char* field, u32 size) {
  if (text == nullptr) text = "";
  const std::size_t n = strnlen(text, size);
  if (n >= size) {
    ErrorScope(kFnCallerArgument).fail(1, "text too long for its field");
    return false;
  }
  std::memcpy(field, text, n + 1);
  return true;
}
template <std::size_t N>
bool put_text(const char* text, char (&field)[N]) {
  return put_text(text, field, static_cast<u32>(N));
}

// Octets into a field of size bytes; a length of 0 or below (or no octets) stores none.
template <class Len>
bool put_octets(const u8* src, long long length, u8* field, u32 size, Len* stored) {
  if (length <= 0 || src == nullptr) {
    *stored = 0;
    return true;
  }
  if (length > size) {
    ErrorScope(kFnCallerArgument).fail(2, "octets too long for their field");
    return false;
  }
  std::memcpy(field, src, static_cast<std::size_t>(length));
  *stored = static_cast<Len>(length);
  return true;
}

inline bool pack_name(const NameIn& slots, USER_X500_NAME* name) {
  for (u32 i = 0; i < kNameSlots; ++i) {
    if (!put_text(slots[i], name->slot[i])) return false;
  }
  return true;
}

inline bool name_is_empty(const USER_X500_NAME& name) {
  for (const auto& slot : name.slot) {
    if (slot[0] != '\0') return false;
  }
  return true;
}

// ---- out of a caller record -------------------------------------------------------------

// Octets of a field into an output of the same size; the stored length is never
// trusted past the field.
inline void take_octets(u8* out, u32* outLen, const u8* field, u32 length, u32 size) {
  const u32 n = length < size ? length : size;
  std::memcpy(out, field, n);
  *outLen = n;
}

// A field's text into an output of the same size, always NUL-terminated.
inline void take_text(char* out, const char* field, u32 size) {
  const std::size_t n = strnlen(field, size - 1);
  std::memcpy(out, field, n);
  out[n] = '\0';
}

inline void unpack_name(const USER_X500_NAME& name, const NameOut& slots) {
  for (u32 i = 0; i < kNameSlots; ++i) take_text(slots[i], name.slot[i], kNameSlotSize);
}

inline void clear_name(const NameOut& slots) {
  for (char* slot : slots) slot[0] = '\0';
}

}  // namespace hylorn
