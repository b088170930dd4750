// A scope guard: runs a clean-up on every exit path unless released. Used around the
// plain records (lists, buffers, certificate records) so that a function frees what it
// built when it fails, without goto chains, and hands it over when it succeeds.
#pragma once

#include <utility>

namespace hylorn {

template <class F>
class ScopeExit {
 public:
  explicit ScopeExit(F f) noexcept : f_(std::move(f)) {}
  ScopeExit(const ScopeExit&) = delete;
  ScopeExit& operator=(const ScopeExit&) = delete;
  ~ScopeExit() {
    if (armed_) f_();
  }
  // Keeps what was built: the clean-up will not run.
  void release() noexcept { armed_ = false; }

 private:
  F f_;
  bool armed_ = true;
};

template <class F>
[[nodiscard]] ScopeExit<F> on_exit(F f) noexcept {
  return ScopeExit<F>(std::move(f));
}

}  // namespace hylorn
