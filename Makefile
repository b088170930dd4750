# The commands of the README. Each configures its own build folder with CMake and Ninja.
JOBS ?= $(shell nproc)
CMAKE_FLAGS ?=

.PHONY: all test test-sanitize test-tsan test-valgrind mutants bench fuzz demo install clean

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

# The same suites under valgrind's memcheck, built with g++ at -O2 with debug information:
# any memory error, any definite or indirect leak, or any branch on a value memcheck holds
# undefined fails the test. The hylorn tool, which the tool tests start as a child, is
# traced too; the system's programs the tests start (the shell, openssl, certtool) are not.
VALGRIND = valgrind;--error-exitcode=1;--leak-check=full;--errors-for-leak-kinds=definite,indirect;--track-origins=yes;--trace-children=yes;--trace-children-skip=/bin/*,/usr/*;--suppressions=$(CURDIR)/tests/valgrind.supp;-q
test-valgrind:
	@scripts/install-deps.sh valgrind
	cmake -S . -B build-valgrind -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DHYLORN_SANITIZE=OFF \
	  "-DCMAKE_CROSSCOMPILING_EMULATOR=$(VALGRIND)" $(CMAKE_FLAGS)
	cmake --build build-valgrind -j $(JOBS)
	ctest --test-dir build-valgrind --output-on-failure -j $(JOBS) --timeout 3000

# Each word of BENCH_ARGS reaches the benchmark quoted, so filters such as md|sha work.
# Plants each fault of scripts/mutants/faults.py in turn and checks that a test catches it.
mutants: all
	scripts/mutants/run.py --build build --out build/mutants.tsv

bench:
	@scripts/install-deps.sh bench
	cmake -S . -B build-bench -G Ninja -DCMAKE_BUILD_TYPE=Release -DHYLORN_BENCH=ON \
	  -DHYLORN_TESTS=OFF $(CMAKE_FLAGS)
	cmake --build build-bench -j $(JOBS) --target hylorn_bench
	build-bench/bench/hylorn_bench $(foreach a,$(BENCH_ARGS),'$(a)')

# Builds the libFuzzer targets (clang, ASan+UBSan) and runs each for FUZZ_SECONDS on a
# working copy of its committed corpus in build-fuzz/corpus (kept between runs, so the
# committed corpus stays as it is), then prints the executions of each. A subset:
# make fuzz FUZZ_TARGETS="fuzz_cert fuzz_crl". More libFuzzer flags: FUZZ_ARGS.
FUZZ_SECONDS ?= 20
FUZZ_TARGETS ?= $(sort $(basename $(notdir $(wildcard fuzz/fuzz_*.cpp))))
FUZZ_ARGS ?=
fuzz:
	@scripts/install-deps.sh fuzz
	CC=clang CXX=clang++ cmake -S . -B build-fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	  -DHYLORN_FUZZ=ON -DHYLORN_TESTS=OFF $(CMAKE_FLAGS)
	cmake --build build-fuzz -j $(JOBS) --target $(FUZZ_TARGETS)
	@mkdir -p build-fuzz/logs build-fuzz/artifacts
	@for t in $(FUZZ_TARGETS); do \
	  mkdir -p build-fuzz/corpus/$$t; \
	  if [ -d fuzz/corpus/$$t ]; then cp -n fuzz/corpus/$$t/* build-fuzz/corpus/$$t/ 2>/dev/null; fi; \
	  echo "== $$t: $(FUZZ_SECONDS) s, log in build-fuzz/logs/$$t.log"; \
	  build-fuzz/fuzz/$$t -max_total_time=$(FUZZ_SECONDS) -print_final_stats=1 \
	    -artifact_prefix=build-fuzz/artifacts/$$t- $(FUZZ_ARGS) build-fuzz/corpus/$$t \
	    > build-fuzz/logs/$$t.log 2>&1 || { tail -n 60 build-fuzz/logs/$$t.log; exit 1; }; \
	done
	@echo "== executions per target"
	@for t in $(FUZZ_TARGETS); do \
	  printf '%-28s %12s executions %8s exec/s\n' $$t \
	    "$$(grep -o 'stat::number_of_executed_units: *[0-9]*' build-fuzz/logs/$$t.log | grep -o '[0-9]*$$')" \
	    "$$(grep -o 'stat::average_exec_per_sec: *[0-9]*' build-fuzz/logs/$$t.log | grep -o '[0-9]*$$')"; \
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
	rm -rf build build-sanitize build-tsan build-valgrind build-bench build-fuzz
