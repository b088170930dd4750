// Temporary directories and whole-file reads and writes, so that tests touching the file
// system leave nothing behind.
#pragma once

#include <stdlib.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
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
  explicit TempDir(Mode mode = kStay) {
    std::string pattern = (std::filesystem::temp_directory_path() / "hylorn-test-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp");
    dir_ = pattern;
    if (mode == kEnter) {
      previous_ = std::filesystem::current_path().string();
      std::filesystem::current_path(dir_);
    }
  }
  ~TempDir() {
    std::error_code ec;
    if (!previous_.empty()) std::filesystem::current_path(previous_, ec);
    std::filesystem::remove_all(dir_, ec);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  std::string path(const std::string& name) const { return dir_ + "/" + name; }
  // Names of the entries, sorted.
  std::vector<std::string> entries() const {
    std::vector<std::string> names;
    for (const auto& e : std::filesystem::directory_iterator(dir_))
      names.push_back(e.path().filename());
    std::sort(names.begin(), names.end());
    return names;
  }

 private:
  std::string dir_;
  std::string previous_;  // the working directory to go back to, if entered
};

inline Bytes read_file(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline void write_file(const std::string& path, const Bytes& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(bytes.data()),
            static_cast<std::streamsize>(bytes.size()));
  if (!out.good()) throw std::runtime_error("write_file " + path);
}

}  // namespace hylorn_test
