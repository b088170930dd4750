// Reads the library's error list back through the exported Crypt_Get_Err, so that tests
// check exactly what a caller sees.
#pragma once

#include <algorithm>
#include <cstdio>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

#include "frame/error.h"
#include "hylorn.h"

namespace hylorn_test {

struct ErrEntry {
  int func_no;
  int err_no;
  std::string msg;
  bool operator==(const ErrEntry&) const = default;
};

inline std::ostream& operator<<(std::ostream& os, const ErrEntry& e) {
  return os << "(" << e.func_no << ", " << e.err_no << ", \"" << e.msg << "\")";
}

// A whole list, innermost entry first.
using Entries = std::vector<ErrEntry>;

// Empties the list, as an internal function does at its start.
inline void clear_errors() {
  hylorn::Crypt_Clear_Err();
}

// The raw text of Crypt_Get_Err (empty when the list is empty).
inline std::string error_text() {
  char out[HYLORN_ERR_TEXT_SIZE];
  out[0] = '\0';
  Crypt_Get_Err(out);
  return out;
}

// The entries as Crypt_Get_Err returns them, parsed line by line.
inline std::vector<ErrEntry> read_errors() {
  std::vector<ErrEntry> entries;
  std::istringstream lines(error_text());
  std::string line;
  while (std::getline(lines, line)) {
    ErrEntry e{};
    int consumed = 0;
    // The blank after '=' is matched by hand: a blank in the format would also swallow
    // a message that is itself one blank.
    if (std::sscanf(line.c_str(), "func_no = %d err_no = %d err_msg =%n", &e.func_no, &e.err_no,
                    &consumed) == 2) {
      e.msg = line.substr(std::min(line.size(), static_cast<std::size_t>(consumed) + 1));
    } else {
      e.msg = "<unparsed: " + line + ">";
    }
    entries.push_back(e);
  }
  return entries;
}

}  // namespace hylorn_test
