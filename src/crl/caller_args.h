// Moving the exported functions' flat arguments into the caller records and back: texts
// into fixed fields (refused when they do not fit, never cut or written past), and the
// sixteen name slots that travel as separate arguments.
#pragma once

#include <cstddef>
#include <cstring>

#include "frame/types.h"
#include "x509/records.h"

// The sixteen slot arguments of HYLORN_NAME_IN / HYLORN_NAME_OUT, as an array initialiser.
#define HYLORN_NAME_ARRAY(p)                                                              \
  {                                                                                       \
    p##C, p##O, p##OU, p##ST, p##CN, p##L, p##Title, p##SN, p##GN, p##Initials, p##Email, \
        p##PostalAddress, p##PostalCode, p##PostOfficeBox, p##Telephone, p##Telex         \
  }

namespace hylorn {

// A null text reads as empty. 1 (field untouched) when text and NUL do not fit.
template <std::size_t N>
u32 copy_text(char (&field)[N], const char* text) {
  if (text == nullptr) text = "";
  const std::size_t n = strnlen(text, N);
  if (n == N) return 1;
  std::memcpy(field, text, n + 1);
  return 0;
}

inline u32 fill_name(const char* const (&slots)[kNameSlots], USER_X500_NAME* name) {
  for (u32 i = 0; i < kNameSlots; ++i) {
    if (copy_text(name->slot[i], slots[i]) != 0) return 1;
  }
  return 0;
}

inline void copy_name_out(const USER_X500_NAME& name, char* const (&slots)[kNameSlots]) {
  for (u32 i = 0; i < kNameSlots; ++i) {
    const std::size_t n = strnlen(name.slot[i], kNameSlotSize - 1);
    std::memcpy(slots[i], name.slot[i], n);
    slots[i][n] = '\0';
  }
}

}  // namespace hylorn
