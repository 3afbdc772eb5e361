# The short road. Everything here is plain CMake; see README.md for the presets.
#
#   make demo    set up, build, adjust three examples, print their summaries
#   make test    set up, build, run the whole suite, smallest benchmarks included
#   make bench   set up, build, run the benchmarks: stages, then whole runs beside a peer
#   make check   formatting and static analysis
#   make asan    the suite under the address and undefined behaviour sanitizers

PACKAGES = g++ cmake ninja-build libcli11-dev libtomlplusplus-dev libcsv-dev \
           nlohmann-json3-dev libfmt-dev
TEST_PACKAGES = libgtest-dev libgmock-dev binutils
BENCH_PACKAGES = libbenchmark-dev
# What whole runs are compared with; `make bench PEER_PACKAGES=` does without.
PEER_PACKAGES = libceres-dev libopenblas-dev
# Of cardo_compare: `make bench BENCH_OPTIONS="--network facade dome-100"` for these two alone.
BENCH_OPTIONS =
CHECK_PACKAGES = clang clang-format clang-tidy

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

.PHONY: demo test bench check asan tidy format-check

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
