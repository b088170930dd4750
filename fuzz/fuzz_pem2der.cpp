// Arbitrary text into PEM2DER_data_format, from an unterminated copy of exactly pemLen
// bytes into the documented 3 * pemLen / 4 bytes. Whatever decodes must survive a trip
// through DER2PEM_data_format and back; a failure must name the missing dash.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "hylorn.h"

namespace {

void check(bool ok) {
  if (!ok) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > (1u << 20)) return 0;
  std::vector<char> pem(data, data + size);
  std::vector<unsigned char> der(3 * size / 4);
  unsigned derLen = 0;
  const unsigned result =
      PEM2DER_data_format(pem.data(), static_cast<int>(size), der.data(), &derLen);
  if (result != 0) {
    char err[HYLORN_ERR_TEXT_SIZE] = {};
    Crypt_Get_Err(err);
    check(std::strncmp(err, "func_no = 155 err_no = 2 ", 25) == 0 ||
          std::strncmp(err, "func_no = 155 err_no = 3 ", 25) == 0);
    return 0;
  }
  check(derLen <= der.size());

  static const char kHeader[] = "-----BEGIN X-----", kFooter[] = "-----END X-----";
  std::vector<char> text(sizeof kHeader + sizeof kFooter + 4 * ((derLen + 2) / 3) +
                         2 * ((derLen + 47) / 48) + 3);
  unsigned textLen = 0;
  check(DER2PEM_data_format(der.data(), derLen, text.data(), &textLen, kHeader, kFooter) == 0);
  check(textLen + 1 == text.size());
  std::vector<unsigned char> back(3 * textLen / 4);
  unsigned backLen = 0;
  check(PEM2DER_data_format(text.data(), static_cast<int>(textLen), back.data(), &backLen) == 0);
  check(backLen == derLen && (derLen == 0 || std::memcmp(back.data(), der.data(), derLen) == 0));
  return 0;
}
