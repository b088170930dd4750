// Runs a fuzz target over saved inputs without libFuzzer: each file argument, or each file
// of a folder argument, is read into a buffer of exactly its size and passed to
// LLVMFuzzerTestOneInput once. A finding aborts (or a sanitizer stops the process); a
// missing or empty corpus fails, so that a replay never passes by running nothing.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

namespace fs = std::filesystem;

bool replay(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  if (!in) {
    std::fprintf(stderr, "cannot read %s\n", file.c_str());
    return false;
  }
  const std::vector<char> bytes((std::istreambuf_iterator<char>(in)),
                                std::istreambuf_iterator<char>());
  // A heap block of exactly the input's size, so that a read past it is caught.
  auto* copy = new std::uint8_t[bytes.size()];
  std::copy(bytes.begin(), bytes.end(), copy);
  LLVMFuzzerTestOneInput(copy, bytes.size());
  delete[] copy;
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<fs::path> files;
  for (int i = 1; i < argc; ++i) {
    const fs::path arg(argv[i]);
    if (!fs::is_directory(arg)) {
      files.push_back(arg);
      continue;
    }
    for (const auto& entry : fs::directory_iterator(arg)) {
      if (entry.is_regular_file()) files.push_back(entry.path());
    }
  }
  std::sort(files.begin(), files.end());
  if (files.empty()) {
    std::fprintf(stderr, "no inputs to replay\n");
    return 1;
  }
  for (const auto& file : files) {
    if (!replay(file)) return 1;
  }
  std::printf("replayed %zu inputs\n", files.size());
  return 0;
}
