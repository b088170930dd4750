#include "frame/bmp_table.h"

#include "hylorn.h"

namespace hylorn {
namespace {

const u8* g_bmp_table = nullptr;

}  // namespace

const u8* current_bmp_table() { return g_bmp_table; }

}  // namespace hylorn

extern "C" HYLORN_API const unsigned char* Crypt_GetBMPTable(const unsigned char* table) {
  hylorn::g_bmp_table = table;
  return table;
}
