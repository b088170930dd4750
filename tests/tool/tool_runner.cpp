#include "tool_runner.h"

#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>

namespace hylorn_test {
namespace {

// An unlinked temporary file: the child writes into it, the parent reads it back.
int temp_fd() {
  char name[] = "/tmp/hylorn-tool-out-XXXXXX";
  int fd = mkstemp(name);
  if (fd < 0) throw std::runtime_error("mkstemp");
  unlink(name);
  return fd;
}

std::string slurp_fd(int fd) {
  std::string out;
  char buf[4096];
  ssize_t n;
  for (lseek(fd, 0, SEEK_SET); (n = read(fd, buf, sizeof buf)) > 0;) out.append(buf, size_t(n));
  close(fd);
  return out;
}

// Runs store[0] (looked up on PATH) with the rest as its arguments.
RunResult run_program(std::vector<std::string> store, const std::vector<std::string>& env) {
  int out_fd = temp_fd(), err_fd = temp_fd();
  std::vector<char*> argv;
  for (std::string& a : store) argv.push_back(a.data());
  argv.push_back(nullptr);
  pid_t pid = fork();
  if (pid < 0) throw std::runtime_error("fork");
  if (pid == 0) {
    dup2(out_fd, STDOUT_FILENO);
    dup2(err_fd, STDERR_FILENO);
    for (const std::string& e : env) putenv(const_cast<char*>(e.c_str()));
    execvp(argv[0], argv.data());
    _exit(127);
  }
  int wstatus = 0;
  waitpid(pid, &wstatus, 0);
  RunResult r;
  r.status = WIFEXITED(wstatus) ? WEXITSTATUS(wstatus) : 128 + WTERMSIG(wstatus);
  r.out = slurp_fd(out_fd);
  r.err = slurp_fd(err_fd);
  return r;
}

}  // namespace

RunResult run_tool(const std::vector<std::string>& args, const std::vector<std::string>& env) {
  std::vector<std::string> store{HYLORN_TOOL};
  store.insert(store.end(), args.begin(), args.end());
  return run_program(store, env);
}

RunResult run_line(const std::string& line, const TempDir& dir,
                   const std::vector<std::string>& env) {
  std::vector<std::string> args = words(line, dir);
  if (!args.empty() && (args[0] == "openssl" || args[0] == "certtool"))
    return run_program(args, env);
  return run_tool(args, env);
}

void run_script(const std::vector<Step>& steps, const TempDir& dir) {
  for (const Step& s : steps) {
    RunResult r = run_line(s.line, dir);
    EXPECT_EQ(r.status, s.status) << s.line << "\n" << r.out << r.err;
    for (const std::string& text : s.says) EXPECT_TRUE(has(r.out + r.err, text)) << s.line;
  }
}

std::vector<std::string> words(const std::string& line, const TempDir& dir) {
  std::vector<std::string> out;
  bool quoted = false, open = false;
  for (char c : line) {
    if (c == ' ' && !quoted) {
      open = false;
      continue;
    }
    if (!open) out.emplace_back();
    open = true;
    if (c == '\'') {
      quoted = !quoted;
    } else {
      out.back() += c == '%' ? dir.path("") : std::string(1, c);
    }
  }
  return out;
}

testing::AssertionResult has(const std::string& text, const std::string& part) {
  if (text.find(part) != std::string::npos) return testing::AssertionSuccess();
  return testing::AssertionFailure() << "no \"" << part << "\" in:\n" << text;
}

std::string read_text(const std::string& path) {
  const Bytes b = read_file(path);
  return std::string(b.begin(), b.end());
}

void write_text(const std::string& path, const std::string& text) {
  write_file(path, bytes_of(text));
}

}  // namespace hylorn_test
