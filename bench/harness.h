// Side-by-side rows: each row runs our implementation and one peer on the same input in
// the same process. Benchmarks are named "<row>/ours" and "<row>/<peer>"; after the run
// the harness prints, per row, the speed of ours relative to the peer (peer time divided
// by our time: above 1.0 we are faster).
#pragma once

#include <benchmark/benchmark.h>

#include <functional>
#include <string>

namespace hylorn_bench {

using BenchFn = std::function<void(benchmark::State&)>;

// Registers "<row>/ours" and "<row>/<peer_name>". bytes_per_iteration > 0 also reports
// throughput.
void register_pair(const std::string& row, BenchFn ours, const std::string& peer_name,
                   BenchFn peer, long bytes_per_iteration = 0);

}  // namespace hylorn_bench
