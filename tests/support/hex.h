// Hex text to bytes and back, for readable test vectors.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace hylorn_test {

using Bytes = std::vector<unsigned char>;

// "30 06 02 01 05" or "300602" -> bytes; blanks, colons and line breaks are ignored.
Bytes from_hex(std::string_view hex);
// Lower-case hex without separators.
std::string to_hex(const unsigned char* data, std::size_t n);
inline std::string to_hex(const Bytes& b) { return to_hex(b.data(), b.size()); }
inline Bytes bytes_of(std::string_view text) { return Bytes(text.begin(), text.end()); }

}  // namespace hylorn_test
