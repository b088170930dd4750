#include "support/temp_dir.h"

#include <stdlib.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace hylorn_test {

namespace fs = std::filesystem;

TempDir::TempDir(Mode mode) {
  std::string pattern = (fs::temp_directory_path() / "hylorn-test-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp");
  dir_ = pattern;
  if (mode == kEnter) {
    previous_ = fs::current_path().string();
    fs::current_path(dir_);
  }
}

TempDir::~TempDir() {
  std::error_code ec;
  if (!previous_.empty()) fs::current_path(previous_, ec);
  fs::remove_all(dir_, ec);
}

std::vector<std::string> TempDir::entries() const {
  std::vector<std::string> names;
  for (const auto& e : fs::directory_iterator(dir_)) names.push_back(e.path().filename());
  std::sort(names.begin(), names.end());
  return names;
}

Bytes read_file(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void write_file(const std::string& path, const Bytes& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(bytes.data()),
            static_cast<std::streamsize>(bytes.size()));
  if (!out.good()) throw std::runtime_error("write_file " + path);
}

}  // namespace hylorn_test
