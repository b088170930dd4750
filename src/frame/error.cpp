#include "frame/error.h"

#include <cstdio>
#include <cstring>

#include "hylorn.h"

namespace hylorn {
namespace {

struct ErrorList {
  u16 count = 0;
  char slots[kErrorSlots][kErrorSlotSize] = {};
};

// Per thread: a caller reads back the chain of its own last failed call, whatever other
// threads are doing meanwhile.
thread_local ErrorList g_errors;

}  // namespace

u32 Crypt_Clear_Err() {
  g_errors.count = 0;
  return 0;
}

u32 Crypt_Put_Err(int func_no, int err_no, const char* err_msg) {
  if (g_errors.count >= kErrorSlots) return 0;
  // snprintf cuts an over-long entry to its slot; the library's own texts all fit.
  std::snprintf(g_errors.slots[g_errors.count], kErrorSlotSize,
                "func_no = %d err_no = %d err_msg = %s\n", func_no, err_no,
                err_msg ? err_msg : "");
  ++g_errors.count;
  return 0;
}

}  // namespace hylorn

extern "C" HYLORN_API unsigned int Crypt_Get_Err(char* out) {
  using namespace hylorn;
  if (g_errors.count > kErrorSlots) g_errors.count = kErrorSlots;
  if (g_errors.count == 0) return 0;  // out is deliberately left as the caller had it
  std::size_t end = 0;
  for (u32 i = 0; i < g_errors.count; ++i) {
    std::size_t n = std::strlen(g_errors.slots[i]);
    std::memcpy(out + end, g_errors.slots[i], n + 1);
    end += n;
  }
  return 0;
}
