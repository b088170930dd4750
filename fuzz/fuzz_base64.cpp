// Arbitrary text into base64_decode with the documented 3 * strlen / 4 bytes of room, and
// arbitrary bytes through base64_encode and back.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "frame/base64.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > (1u << 20)) return 0;
  const std::string text(reinterpret_cast<const char*>(data), size);  // stops at a NUL
  std::vector<unsigned char> out(3 * std::strlen(text.c_str()) / 4);
  unsigned outLen = 0;
  if (hylorn::base64_decode(text.c_str(), out.data(), &outLen) == 0 && outLen > out.size())
    std::abort();

  std::vector<char> coded(4 * ((size + 2) / 3) + 1);
  hylorn::base64_encode(data, static_cast<unsigned>(size), coded.data());
  if (std::strlen(coded.data()) + 1 != coded.size()) std::abort();
  std::vector<unsigned char> back(3 * (coded.size() - 1) / 4);
  if (hylorn::base64_decode(coded.data(), back.data(), &outLen) != 0 || outLen != size ||
      (size != 0 && std::memcmp(back.data(), data, size) != 0))
    std::abort();
  return 0;
}
