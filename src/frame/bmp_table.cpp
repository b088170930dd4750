#include "frame/bmp_table.h"

#include <atomic>

#include "hylorn.h"

namespace hylorn {
namespace {

// Release on store and acquire on load: a decoder that sees a new pointer also sees the
// table contents the loading thread wrote before loading it.
std::atomic<const u8*> g_bmp_table{nullptr};

}  // namespace

const u8* current_bmp_table() {
  return g_bmp_table.load(std::memory_order_acquire);
}

}  // namespace hylorn

extern "C" HYLORN_API const unsigned char* Crypt_GetBMPTable(const unsigned char* table) {
  hylorn::g_bmp_table.store(table, std::memory_order_release);
  return table;
}
