#include "harness.h"

#include <cstdio>
#include <map>
#include <vector>

namespace hylorn_bench {
namespace {

struct RowTimes {
  double ours = 0;  // seconds per iteration (CPU)
  std::string peer_name;
  double peer = 0;
};

// Collects per-iteration times while printing the usual console output.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.run_type != Run::RT_Iteration || run.iterations == 0 || run.error_occurred)
        continue;
      std::string name = run.benchmark_name();
      auto slash = name.rfind('/');
      if (slash == std::string::npos) continue;
      std::string row = name.substr(0, slash), impl = name.substr(slash + 1);
      double t = run.cpu_accumulated_time / static_cast<double>(run.iterations);
      if (rows_.find(row) == rows_.end()) order_.push_back(row);
      RowTimes& r = rows_[row];
      if (impl == "ours") {
        r.ours = t;
      } else {
        r.peer = t;
        r.peer_name = impl;
      }
    }
    ConsoleReporter::ReportRuns(runs);
  }

  void print_ratios() const {
    std::printf("\n%-36s %12s %12s  %-8s %s\n", "row", "ours", "peer", "peer", "speed ours/peer");
    for (const std::string& row : order_) {
      const RowTimes& r = rows_.at(row);
      if (r.ours <= 0 || r.peer <= 0) continue;
      std::printf("%-36s %10.2fus %10.2fus  %-8s %.2fx\n", row.c_str(), r.ours * 1e6,
                  r.peer * 1e6, r.peer_name.c_str(), r.peer / r.ours);
    }
  }

 private:
  std::vector<std::string> order_;
  std::map<std::string, RowTimes> rows_;
};

}  // namespace

void register_pair(const std::string& row, BenchFn ours, const std::string& peer_name,
                   BenchFn peer, long bytes_per_iteration) {
  auto wrap = [bytes_per_iteration](BenchFn fn) {
    return [fn, bytes_per_iteration](benchmark::State& state) {
      fn(state);
      if (bytes_per_iteration > 0)
        state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * bytes_per_iteration);
    };
  };
  benchmark::RegisterBenchmark((row + "/ours").c_str(), wrap(std::move(ours)));
  benchmark::RegisterBenchmark((row + "/" + peer_name).c_str(), wrap(std::move(peer)));
}

}  // namespace hylorn_bench

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  hylorn_bench::RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  reporter.print_ratios();
  benchmark::Shutdown();
  return 0;
}
