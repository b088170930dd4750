// Runs the hylorn binary as a child process and captures what it says.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "support/hex.h"
#include "support/temp_dir.h"

namespace hylorn_test {

struct RunResult {
  int status = -1;  // exit code, or 128 + signal
  std::string out, err;
};

// hylorn with args; env holds NAME=value pairs added to the environment.
RunResult run_tool(const std::vector<std::string>& args, const std::vector<std::string>& env = {});

std::string read_text(const std::string& path);
void write_text(const std::string& path, const std::string& text);

}  // namespace hylorn_test
