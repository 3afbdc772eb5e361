# The short road. Everything here is plain CMake; see README.md for the presets.
#
#   make demo    set up, build, adjust three examples, print their summaries
#   make test    set up, build, run the whole suite, smallest benchmarks included
#   make bench   set up, build, run the benchmarks: stages, then whole runs beside a peer
#   make check   formatting and static analysis
#   make asan    the suite under the address and undefined behaviour sanitizers
#   make fuzz    fuzzes each target for FUZZ_SECONDS, two at a time
#   make tsan    many jobs on many threads under the thread sanitizer
#   make valgrind  the examples under valgrind, every error and every leak fatal
#   make soak    ten thousand jobs in one process, with the memory they leave
#   make coverage  lines and branches of src/ that the suite executes
#   make mutation  changes operators and constants of the core and prints those nobody notices

PACKAGES = g++ cmake ninja-build libcli11-dev libtomlplusplus-dev libcsv-dev \
           nlohmann-json3-dev libfmt-dev
TEST_PACKAGES = libgtest-dev libgmock-dev binutils
BENCH_PACKAGES = libbenchmark-dev
# What whole runs are compared with; `make bench PEER_PACKAGES=` does without.
PEER_PACKAGES = libceres-dev libopenblas-dev
# Of cardo_compare: `make bench BENCH_OPTIONS="--network facade dome-100"` for these two alone.
BENCH_OPTIONS =
CHECK_PACKAGES = clang clang-format clang-tidy
VALGRIND_PACKAGES = valgrind
# The facade stops after this many iterations: a valgrind run takes some thirty times as long.
VALGRIND_FACADE_ITERATIONS = 2
SOAK_JOBS = 10000
VALGRIND = valgrind --leak-check=full --show-leak-kinds=all --errors-for-leak-kinds=definite,possible \
           --error-exitcode=9
COVERAGE_PACKAGES = gcovr
# Of mutate.py: `make mutation MUTATION_OPTIONS="--seed 7 --count 50"`.
MUTATION_OPTIONS = --count 200
FUZZ_PACKAGES = clang
# For each of the four targets.
FUZZ_SECONDS = 60

SUDO := $(if $(filter 0,$(shell id -u)),,sudo)
JOBS ?= $(shell nproc)

# Packages that are there already are left alone, so that no network is needed twice.
define install
	@missing=; for package in $(1); do \
	  dpkg-query -W -f='$${Status}' $$package 2>/dev/null | grep -q 'ok installed' || missing="$$missing $$package"; \
	done; \
	if [ -n "$$missing" ]; then \
	  echo "installing$$missing"; \
	  $(SUDO) apt-get update -qq && \
	  DEBIAN_FRONTEND=noninteractive $(SUDO) apt-get install -y -qq --no-install-recommends $$missing >/dev/null; \
	fi
endef

.PHONY: demo test bench check asan fuzz fuzz-build fuzz-merge tsan valgrind soak coverage mutation tidy format-check

demo:
	$(call install,$(PACKAGES))
	@cmake --preset release -DCARDO_BUNDLE_BUILD_TESTS=OFF -DCARDO_BUNDLE_BUILD_BENCH=OFF -B build/demo >/dev/null
	@cmake --build build/demo -j $(JOBS) --target cardo-bundle
	@build/demo/cli/cardo-bundle adjust examples/camera-calibration --output build/demo/camera-calibration
	@echo
	@build/demo/cli/cardo-bundle adjust examples/gross-errors --output build/demo/gross-errors
	@echo
	@build/demo/cli/cardo-bundle adjust examples/facade --output build/demo/facade

test:
	$(call install,$(PACKAGES) $(TEST_PACKAGES) $(BENCH_PACKAGES))
	cmake --preset release -DCARDO_BUNDLE_BUILD_TESTS=ON -DCARDO_BUNDLE_BUILD_BENCH=ON
	cmake --build --preset release -j $(JOBS)
	ctest --preset release -j $(JOBS)

asan:
	$(call install,$(PACKAGES) $(TEST_PACKAGES))
	cmake --preset asan -DCARDO_BUNDLE_BUILD_BENCH=OFF
	cmake --build --preset asan -j $(JOBS)
	ctest --preset asan -j $(JOBS)

fuzz-build:
	$(call install,$(PACKAGES) $(FUZZ_PACKAGES))
	cmake --preset fuzz
	cmake --build --preset fuzz -j $(JOBS)

fuzz: fuzz-build
	fuzz/run.sh build/fuzz $(FUZZ_SECONDS)

# What earlier calls of `make fuzz` learnt, into fuzz/corpus.
fuzz-merge: fuzz-build
	fuzz/run.sh build/fuzz merge

tsan:
	$(call install,$(PACKAGES) $(TEST_PACKAGES))
	cmake --preset tsan -DCARDO_BUNDLE_BUILD_BENCH=OFF -DCARDO_BUNDLE_BUILD_CLI=OFF
	cmake --build --preset tsan -j $(JOBS) --target test_threads
	cd build/tsan/tests && TSAN_OPTIONS=halt_on_error=1 ./test_threads

valgrind:
	$(call install,$(PACKAGES) $(VALGRIND_PACKAGES))
	cmake --preset release -DCARDO_BUNDLE_BUILD_TESTS=OFF -DCARDO_BUNDLE_BUILD_BENCH=OFF -B build/valgrind
	cmake --build build/valgrind -j $(JOBS) --target cardo-bundle
	for example in camera-calibration free-network gross-errors lines-and-planes; do \
	  $(VALGRIND) build/valgrind/cli/cardo-bundle adjust --quiet examples/$$example \
	    --output build/valgrind/$$example || exit 1; done
	$(VALGRIND) build/valgrind/cli/cardo-bundle adjust --quiet examples/facade \
	  --set max_iterations=$(VALGRIND_FACADE_ITERATIONS) --output build/valgrind/facade

soak:
	$(call install,$(PACKAGES) $(TEST_PACKAGES))
	cmake --preset release -DCARDO_BUNDLE_BUILD_TESTS=ON
	cmake --build --preset release -j $(JOBS) --target cardo_soak
	build/release/tests/cardo_soak $(SOAK_JOBS)

# One run for each program: counters of a program's tests are written once, at its end. Programs add
# to each other's counters, also at the same time. Branches that the compiler adds for exceptions do
# not count, nor do the copies of the kernels for other machines and the headers compiled alone:
# where code was never run gcov does not tell the branches for exceptions from others.
COVERAGE_LEFT_OUT = .*/(cardo_bundle_portable|cardo_bundle_avx2|test_headers)\.dir
coverage:
	$(call install,$(PACKAGES) $(TEST_PACKAGES) $(COVERAGE_PACKAGES))
	cmake --preset coverage -DCARDO_BUNDLE_BUILD_BENCH=OFF
	cmake --build --preset coverage -j $(JOBS)
	find build/coverage -name '*.gcda' -delete
	cd build/coverage/tests && find . -maxdepth 1 -type f -name 'test_*' -perm -u+x | sort | \
	  xargs -P $(JOBS) -I PROGRAM sh -c 'PROGRAM --gtest_brief=1'
	gcovr --root . --filter src/ --exclude-throw-branches --exclude-unreachable-branches \
	  --exclude-directories '$(COVERAGE_LEFT_OUT)' \
	  --html-details build/coverage/index.html --txt build/coverage/branches.txt --branches \
	  --print-summary build/coverage

mutation:
	$(call install,$(PACKAGES) $(TEST_PACKAGES) ccache python3)
	tests/mutation/mutate.py --jobs $(JOBS) $(MUTATION_OPTIONS)

bench:
	$(call install,$(PACKAGES) $(BENCH_PACKAGES) $(PEER_PACKAGES))
	cmake --preset release -DCARDO_BUNDLE_BUILD_TESTS=OFF -DCARDO_BUNDLE_BUILD_BENCH=ON -B build/bench
	cmake --build build/bench -j $(JOBS) --target cardo_bench cardo_compare
	build/bench/bench/cardo_bench --benchmark_min_time=0.2
	build/bench/bench/cardo_compare --work build/bench/networks \
	  --note "commit $$(git describe --always --dirty 2>/dev/null || echo unknown)" $(BENCH_OPTIONS)

check: format-check tidy

format-check:
	$(call install,$(CHECK_PACKAGES))
	git ls-files '*.h' '*.cpp' | xargs clang-format --dry-run --Werror

tidy:
	$(call install,$(PACKAGES) $(CHECK_PACKAGES))
	cmake --preset release -B build/tidy -DCMAKE_CXX_COMPILER=clang++ -DCARDO_BUNDLE_BUILD_TESTS=OFF -DCARDO_BUNDLE_BUILD_BENCH=OFF >/dev/null
	git ls-files 'src/*.cpp' 'cli/*.cpp' | xargs -P $(JOBS) -n 4 clang-tidy -p build/tidy --quiet
