// Runs command lines as a user types them and checks what they say.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <string>
#include <vector>

#include "support/hex.h"
#include "support/temp_dir.h"

namespace hylorn_test {

struct RunResult {
  int status = -1;  // exit code, or 128 + signal
  std::string out, err;
};

// Whether text holds part, showing the text when it does not.
inline testing::AssertionResult has(const std::string& text, const std::string& part) {
  if (text.find(part) != std::string::npos) return testing::AssertionSuccess();
  return testing::AssertionFailure() << "no \"" << part << "\" in:\n" << text;
}

inline std::string read_text(const std::string& path) {
  const Bytes b = read_file(path);
  return std::string(b.begin(), b.end());
}
inline void write_text(const std::string& path, const std::string& text) {
  write_file(path, bytes_of(text));
}

// One step of a scenario: a command line, the status it must end with and texts that its
// standard output and error together must hold.
struct Step {
  std::string line;
  int status = 0;
  std::vector<std::string> says = {};
};

// A scratch folder for the command lines, in which each "%" stands for the folder.
class ToolTest : public testing::Test {
 protected:
  std::string path(const std::string& name) const { return dir.path(name); }
  // The line through the shell: hylorn, or openssl or certtool when the line starts with
  // that name (those read our outputs independently); env is NAME=value words.
  RunResult run(std::string line, const std::string& env = "") {
    for (std::size_t at = 0; (at = line.find('%', at)) != std::string::npos;)
      line.replace(at, 1, dir.path(""));
    if (line.rfind("openssl ", 0) != 0 && line.rfind("certtool ", 0) != 0)
      line = HYLORN_TOOL " " + line;
    FILE* pipe = popen((env + " " + line + " 2>" + path(".stderr")).c_str(), "r");
    RunResult r;
    char buf[4096];
    for (std::size_t n; (n = fread(buf, 1, sizeof buf, pipe)) > 0;) r.out.append(buf, n);
    const int w = pclose(pipe);
    r.status = WIFEXITED(w) ? WEXITSTATUS(w) : 128 + WTERMSIG(w);
    r.err = read_text(path(".stderr"));
    return r;
  }
  void script(const std::vector<Step>& steps) {
    for (const Step& s : steps) {
      RunResult r = run(s.line);
      EXPECT_EQ(r.status, s.status) << s.line << "\n" << r.out << r.err;
      for (const std::string& text : s.says) EXPECT_TRUE(has(r.out + r.err, text)) << s.line;
    }
  }
  TempDir dir;
};

}  // namespace hylorn_test
