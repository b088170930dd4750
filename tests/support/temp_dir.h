// Temporary directories and whole-file reads and writes, so that tests touching the file
// system leave nothing behind.
#pragma once

#include <string>
#include <vector>

#include "support/hex.h"

namespace hylorn_test {

// A directory made with mkdtemp and removed with everything in it when the object dies.
// With kEnter it is also the working directory while it lives, so that names without a
// directory part land there and nowhere else.
class TempDir {
 public:
  enum Mode { kStay, kEnter };
  explicit TempDir(Mode mode = kStay);
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  std::string path(const std::string& name) const { return dir_ + "/" + name; }
  // Names of the entries, sorted.
  std::vector<std::string> entries() const;

 private:
  std::string dir_;
  std::string previous_;  // the working directory to go back to, if entered
};

Bytes read_file(const std::string& path);
void write_file(const std::string& path, const Bytes& bytes);

}  // namespace hylorn_test
