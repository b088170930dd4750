// Reads the library's error list back through the exported Crypt_Get_Err, so that tests
// check exactly what a caller sees.
#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace hylorn_test {

struct ErrEntry {
  int func_no;
  int err_no;
  std::string msg;
  bool operator==(const ErrEntry&) const = default;
};

std::ostream& operator<<(std::ostream& os, const ErrEntry& e);

// A whole list, innermost entry first.
using Entries = std::vector<ErrEntry>;

// Empties the list, as an internal function does at its start.
void clear_errors();
// The entries as Crypt_Get_Err returns them, parsed line by line.
std::vector<ErrEntry> read_errors();
// The raw text of Crypt_Get_Err (empty when the list is empty).
std::string error_text();

}  // namespace hylorn_test
