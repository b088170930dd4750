// Runs the hylorn binary as a child process and captures what it says.
#pragma once

#include <gtest/gtest.h>

#include <string>
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
// The words of line (see words()) run as hylorn, or as openssl or certtool when the line
// starts with that name: those read our outputs independently.
RunResult run_line(const std::string& line, const TempDir& dir,
                   const std::vector<std::string>& env = {});

// The words of line as a shell splits them (blanks separate, '...' groups), with each
// "%" standing for dir, so that a test writes "genkey -o %k" for dir.path("k").
std::vector<std::string> words(const std::string& line, const TempDir& dir);

// One step of a scenario: a command line for run_line, the status it must end with and
// texts that its standard output and error together must hold.
struct Step {
  std::string line;
  int status = 0;
  std::vector<std::string> says = {};
};
void run_script(const std::vector<Step>& steps, const TempDir& dir);

// Whether text holds part, showing the text when it does not.
testing::AssertionResult has(const std::string& text, const std::string& part);

std::string read_text(const std::string& path);
void write_text(const std::string& path, const std::string& text);

}  // namespace hylorn_test
