// Small pieces the newer targets share: the abort that a finding ends in, and a cursor
// that splits one fuzzer input into the several arguments a call takes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace fuzz_support {

inline void check(bool ok) {
  if (!ok) std::abort();
}

inline bool same(const unsigned char* a, std::size_t aLen, const unsigned char* b,
                 std::size_t bLen) {
  return aLen == bLen && (aLen == 0 || std::memcmp(a, b, aLen) == 0);
}

// Reads the input front to back; past the end every read is empty, so each split is
// defined for every input length.
class Cursor {
 public:
  Cursor(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}
  std::uint8_t byte() {
    if (size_ == 0) return 0;
    --size_;
    return *data_++;
  }
  // Up to n bytes; fewer when the input runs out.
  const std::uint8_t* take(std::size_t n, std::size_t* got) {
    *got = n < size_ ? n : size_;
    const std::uint8_t* at = data_;
    data_ += *got;
    size_ -= *got;
    return at;
  }
  const std::uint8_t* rest(std::size_t* got) { return take(size_, got); }

 private:
  const std::uint8_t* data_;
  std::size_t size_;
};

}  // namespace fuzz_support
