#include "tool_runner.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <stdexcept>

namespace hylorn_test {

namespace {

std::string slurp_fd(int fd) {
  std::string out;
  lseek(fd, 0, SEEK_SET);
  char buf[4096];
  ssize_t n;
  while ((n = read(fd, buf, sizeof buf)) > 0) out.append(buf, static_cast<size_t>(n));
  close(fd);
  return out;
}

int temp_fd() {
  char name[] = "/tmp/hylorn-tool-out-XXXXXX";
  int fd = mkstemp(name);
  if (fd < 0) throw std::runtime_error("mkstemp");
  unlink(name);
  return fd;
}

}  // namespace

RunResult run_tool(const std::vector<std::string>& args, const std::vector<std::string>& env) {
  int out_fd = temp_fd(), err_fd = temp_fd();
  std::vector<std::string> argv_store{HYLORN_TOOL};
  argv_store.insert(argv_store.end(), args.begin(), args.end());
  std::vector<char*> argv;
  for (std::string& a : argv_store) argv.push_back(a.data());
  argv.push_back(nullptr);
  pid_t pid = fork();
  if (pid < 0) throw std::runtime_error("fork");
  if (pid == 0) {
    dup2(out_fd, STDOUT_FILENO);
    dup2(err_fd, STDERR_FILENO);
    for (const std::string& e : env) putenv(const_cast<char*>(e.c_str()));
    execv(argv[0], argv.data());
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

std::string read_text(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void write_text(const std::string& path, const std::string& text) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}

}  // namespace hylorn_test
