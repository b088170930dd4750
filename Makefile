# The commands of the README. Each configures its own build folder with CMake and Ninja.
JOBS ?= $(shell nproc)
CMAKE_FLAGS ?=

.PHONY: all test test-sanitize test-tsan bench fuzz demo install clean

all:
	@scripts/install-deps.sh test
	cmake -S . -B build -G Ninja $(CMAKE_FLAGS)
	cmake --build build -j $(JOBS)

test: all
	ctest --test-dir build --output-on-failure -j $(JOBS)

# The same suites under AddressSanitizer and UndefinedBehaviorSanitizer, built with clang.
test-sanitize:
	@scripts/install-deps.sh sanitize
	CC=clang CXX=clang++ cmake -S . -B build-sanitize -G Ninja -DCMAKE_BUILD_TYPE=Debug \
	  -DHYLORN_SANITIZE=ON $(CMAKE_FLAGS)
	cmake --build build-sanitize -j $(JOBS)
	ASAN_OPTIONS=detect_leaks=1 ctest --test-dir build-sanitize --output-on-failure -j $(JOBS)

# The threads and allocation-failure tests under ThreadSanitizer, built with clang: the
# threads test runs the whole service from several threads at once. The other suites are
# single-threaded, so the race detector has nothing to add there.
test-tsan:
	@scripts/install-deps.sh sanitize
	CC=clang CXX=clang++ cmake -S . -B build-tsan -G Ninja -DCMAKE_BUILD_TYPE=Debug \
	  -DHYLORN_TSAN=ON $(CMAKE_FLAGS)
	cmake --build build-tsan -j $(JOBS) --target test_hardening
	TSAN_OPTIONS=halt_on_error=1 ctest --test-dir build-tsan --output-on-failure -R '^hardening$$'

# Each word of BENCH_ARGS reaches the benchmark quoted, so filters such as md|sha work.
bench:
	@scripts/install-deps.sh bench
	cmake -S . -B build-bench -G Ninja -DCMAKE_BUILD_TYPE=Release -DHYLORN_BENCH=ON \
	  -DHYLORN_TESTS=OFF $(CMAKE_FLAGS)
	cmake --build build-bench -j $(JOBS) --target hylorn_bench
	build-bench/bench/hylorn_bench $(foreach a,$(BENCH_ARGS),'$(a)')

# Builds the libFuzzer targets and runs each for FUZZ_SECONDS.
FUZZ_SECONDS ?= 20
fuzz:
	@scripts/install-deps.sh fuzz
	CC=clang CXX=clang++ cmake -S . -B build-fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	  -DHYLORN_FUZZ=ON -DHYLORN_TESTS=OFF $(CMAKE_FLAGS)
	cmake --build build-fuzz -j $(JOBS)
	@for f in build-fuzz/fuzz/fuzz_*; do \
	  [ -x "$$f" ] || continue; \
	  echo "== $$f"; $$f -max_total_time=$(FUZZ_SECONDS) -print_final_stats=1 || exit 1; \
	done

# A root and an intermediate CA, a server certificate, a revocation, the CRLs and the
# chain, made with the hylorn tool from nothing into build/demo and verified there.
demo: all
	@tools/demo.sh build/tools/hylorn build/demo

# The library, header, pkg-config file and CMake package under PREFIX.
PREFIX ?= /usr/local
install: all
	cmake --install build --prefix $(PREFIX)

clean:
	rm -rf build build-sanitize build-tsan build-bench build-fuzz
