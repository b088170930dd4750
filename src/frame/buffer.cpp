#include "frame/buffer.h"

#include <cstdlib>
#include <cstring>

#include "frame/error.h"

namespace hylorn {
namespace {

constexpr int kFnCopyDataBuffer = 132;
constexpr int kFnCopyBitToNoneBit = 136;
constexpr int kFnCopyNoneBitToBit = 137;

// Allocates and fills a block of length bytes, or reports "malloc" under func_no.
// Null for length 0: the records never own a block of size 0.
u32 duplicate_bytes(int func_no, u8** block, u32 length, const u8* src) {
  *block = nullptr;
  if (length == 0) return 0;
  auto* p = static_cast<u8*>(std::malloc(length));
  if (p == nullptr) return ErrorScope::keep_list(func_no).fail(1, "malloc");
  std::memcpy(p, src, length);
  *block = p;
  return 0;
}

}  // namespace

u32 ini_DATA_BUFFER(DATA_BUFFER* buf) {
  buf->length = 0;
  buf->data = nullptr;
  return 0;
}

u32 free_DATA_BUFFER(DATA_BUFFER* buf) {
  std::free(buf->data);
  return ini_DATA_BUFFER(buf);
}

u32 copy_DATA_BUFFER(DATA_BUFFER* dst, u32 length, const u8* src) {
  if (length == 0) return ini_DATA_BUFFER(dst);
  if (duplicate_bytes(kFnCopyDataBuffer, &dst->data, length, src) != 0) return 1;
  dst->length = length;
  return 0;
}

u32 ini_BIT_DATA_BUFFER(BIT_DATA_BUFFER* buf) {
  buf->length = 0;
  buf->unusedBits = 0;
  buf->data = nullptr;
  return 0;
}

u32 free_BIT_DATA_BUFFER(BIT_DATA_BUFFER* buf) {
  std::free(buf->data);
  return ini_BIT_DATA_BUFFER(buf);
}

u32 copy_BIT_To_NoneBIT(DATA_BUFFER* dst, BIT_DATA_BUFFER src) {
  if (src.length == 0) return ini_DATA_BUFFER(dst);
  if (duplicate_bytes(kFnCopyBitToNoneBit, &dst->data, src.length, src.data) != 0) return 1;
  dst->length = src.length;
  return 0;
}

u32 copy_NoneBIT_To_BIT(BIT_DATA_BUFFER* dst, DATA_BUFFER src) {
  if (src.length == 0) return ini_BIT_DATA_BUFFER(dst);
  if (duplicate_bytes(kFnCopyNoneBitToBit, &dst->data, src.length, src.data) != 0) return 1;
  dst->length = src.length;
  dst->unusedBits = 0;
  return 0;
}

}  // namespace hylorn
