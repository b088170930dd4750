// The error list, one per thread: at most 16 entries of "func_no = %d err_no = %d err_msg = %s\n".
//
// Internal coders, converters and look-ups empty the list on entry and append one entry
// when they fail, so after a failed exported call the list holds only the failing chain,
// innermost first. Each thread has its own list, so a failure in one thread never shows
// up in, or clears, another thread's list. ErrorScope carries that convention: make one at
// the top of such a function, and every failure site becomes
// `return err.fail(3, "data length");`.
#pragma once

#include "frame/types.h"

namespace hylorn {

inline constexpr u32 kErrorSlots = 16;
inline constexpr u32 kErrorSlotSize = 128;

// Empties the list (the slot texts stay, only the count drops to 0).
u32 Crypt_Clear_Err();
// Appends one entry; silently drops it once 16 entries are held. Always 0.
u32 Crypt_Put_Err(int func_no, int err_no, const char* err_msg);

class ErrorScope {
 public:
  // Empties the list and remembers the function number for later entries.
  explicit ErrorScope(int func_no) noexcept : func_no_(func_no) { Crypt_Clear_Err(); }

  // For record operations (ini_, free_, new_, copy_), which report under their number
  // but must not empty the list of the caller that is building up.
  static ErrorScope keep_list(int func_no) noexcept { return ErrorScope(func_no, KeepList{}); }

  // Appends (func_no, err_no, msg) and returns 1, the usual failure result.
  u32 fail(int err_no, const char* msg) const noexcept { return fail_with(1, err_no, msg); }

  // The same with another result (look-ups answer 2 for "not found").
  u32 fail_with(u32 result, int err_no, const char* msg) const noexcept {
    Crypt_Put_Err(func_no_, err_no, msg);
    return result;
  }

  int func_no() const noexcept { return func_no_; }

 private:
  struct KeepList {};
  ErrorScope(int func_no, KeepList) noexcept : func_no_(func_no) {}
  int func_no_;
};

}  // namespace hylorn
