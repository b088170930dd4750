// BMPString (UCS-2, big-endian code units) into the caller's local double-byte text.
#include <cstdlib>

#include "asn1/der.h"
#include "asn1/der_reader.h"
#include "frame/bmp_table.h"
#include "frame/error.h"

namespace hylorn {
namespace {

constexpr int kFnDecodeBmpString = 156;
constexpr u8 kBmpStringTag = 0x1E;

// Writes the local text of contents[0 .. length) at out and returns its length. An odd
// trailing octet is half a code unit and is dropped, never read past.
u32 convert_code_units(const u8* table, const u8* contents, u32 length, u8* out) {
  u32 written = 0;
  for (u32 i = 0; i + 1 < length; i += 2) {
    const u8 high = contents[i];
    const u8 low = contents[i + 1];
    if (high == 0) {  // ASCII and Latin-1 pass through as one byte
      out[written++] = low;
      continue;
    }
    const u8* entry = table + 2 * (u32{high} << 8 | low);
    out[written++] = entry[0] | 0x80;
    out[written++] = entry[1] | 0x80;
  }
  return written;
}

}  // namespace

u32 ASN1_Decode_BMPString(u32 total, const u8* der, DATA_BUFFER* out) {
  ErrorScope err(kFnDecodeBmpString);
  const u8* table = current_bmp_table();
  // Checked before the input and numbered after the input's steps, as callers expect.
  if (table == nullptr) return err.fail(10, "BMP table not loaded.");
  DerElement e{};
  const DerStep step = read_der(total, der, kBmpStringTag, &e);
  if (step != DerStep::kOk) return fail_step(err, step, kDerStepErrors);
  if (e.length == 0) return ini_DATA_BUFFER(out);
  // Each code unit of 2 octets gives at most 2 bytes, so the contents length bounds it.
  auto* text = static_cast<u8*>(std::malloc(e.length));
  if (text == nullptr) return err.fail(6, "memory");
  const u32 written = convert_code_units(table, e.contents, e.length, text);
  if (written == 0) {  // a lone octet: the record owns no block when it is empty
    std::free(text);
    return ini_DATA_BUFFER(out);
  }
  out->data = text;
  out->length = written;
  return 0;
}

}  // namespace hylorn
