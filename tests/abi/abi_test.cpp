// The dynamic symbol table and the SONAME of the built libhylorn.so, as binutils read
// them, against the functions of the public header.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <string>

namespace {

// The functions the public header declares, one per line after HYLORN_API.
std::set<std::string> declared_names() {
  std::ifstream header(HYLORN_HEADER_PATH);
  const std::regex declaration(R"(^HYLORN_API [^(]*\b(\w+)\()");
  std::set<std::string> names;
  std::smatch m;
  for (std::string line; std::getline(header, line);)
    if (std::regex_search(line, m, declaration)) names.insert(m[1]);
  return names;
}

// What a command writes to its standard output.
std::string output_of(const std::string& command) {
  std::string out;
  FILE* pipe = popen(command.c_str(), "r");
  char buf[4096];
  for (std::size_t n; pipe != nullptr && (n = fread(buf, 1, sizeof buf, pipe)) > 0;)
    out.append(buf, n);
  if (pipe != nullptr) pclose(pipe);
  return out;
}

TEST(SharedLibrary, ExportsExactlyThePublicNamesUnderItsSoname) {
  const std::set<std::string> public_names = declared_names();
  ASSERT_EQ(public_names.size(), 46u);
  std::set<std::string> exported;
  std::istringstream lines(output_of("nm -D --defined-only " HYLORN_SO_PATH));
  for (std::string address, type, name; lines >> address >> type >> name;) exported.insert(name);
  EXPECT_EQ(exported, public_names);
  std::istringstream dynamic(output_of("objdump -p " HYLORN_SO_PATH));
  std::string word, soname;
  while (dynamic >> word)
    if (word == "SONAME") dynamic >> soname;
  EXPECT_EQ(soname, "libhylorn.so.1");
}

}  // namespace
