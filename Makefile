# The two set-up commands of the project:
#   make run    installs what is missing, builds, and parses the example answers
#   make test   installs what is missing, builds, and runs the test suite
#   make install PREFIX=DIR   builds a Release copy and installs the library,
#               bin/poiparse, its manual page and its bash completion
#   make bench  builds the benchmarks in Release and prints their table
#   make python builds the Python module poiparser into build/python
#               (import it with PYTHONPATH=build/python)
#   make docs   regenerates docs/bundles.md from the field tables
#   make check  the test suite under ASan+UBSan (make test), once more built
#               at -O2 under ASan alone with assertions on (check-o2), the
#               concurrency test under ThreadSanitizer, a fuzz smoke run
#               (60 s) and the suite built on cJSON alone (test-cjson-only)
#   make test-cjson-only  the test suite of a build without simdjson
#               (POIPARSER_WITH_SIMDJSON=OFF)
#   make fuzz SECONDS=N   runs the fuzz targets for N seconds each
#   make test-arm64 / make test-armhf   cross-build for 64-bit / 32-bit ARM
#               and run the test suite under qemu-user
JOBS ?= 2
RELEASE_DIR := build/release
TEST_DIR := build/test
BENCH_DIR := build/bench
TSAN_DIR := build/tsan
CJSON_ONLY_DIR := build/test-cjson-only
CHECK_O2_DIR := build/check-o2
FUZZ_DIR := build/fuzz
PYTHON_DIR := build/python
BUILD_PACKAGES := cmake g++ make libcjson-dev libsimdjson-dev pkg-config
TEST_PACKAGES := $(BUILD_PACKAGES) libgtest-dev python3-jsonschema
BENCH_PACKAGES := $(BUILD_PACKAGES) libbenchmark-dev
# The module is built for Debian's /usr/bin/python3; its tests need pytest
# and Dask (a two-worker local cluster replays a log).
PYTHON_PACKAGES := $(BUILD_PACKAGES) pybind11-dev python3-dev
PYTHON_TEST_PACKAGES := $(PYTHON_PACKAGES) python3-pytest python3-dask python3-distributed
# clang-14 gives clang++-14; libclang-rt-14-dev gives libFuzzer and the
# sanitizer runtimes of clang (a recommendation only, so named here).
FUZZ_PACKAGES := $(BUILD_PACKAGES) clang-14 libclang-rt-14-dev
CHECK_PACKAGES := $(TEST_PACKAGES) clang-14 libclang-rt-14-dev
FUZZ_CXX ?= clang++-14
SECONDS ?= 60
EXAMPLES := $(sort $(wildcard examples/*.json))
PREFIX ?= /usr/local

.PHONY: run test bench deps deps-test build build-test install clean check check-tsan check-o2 \
	test-cjson-only python test-python docs \
	build-fuzz fuzz fuzz-corpus test-arm64 test-armhf

# Each example is read with the arguments in examples/NAME.args, if any.
run: build
	@for f in $(EXAMPLES); do \
	  args=$$(cat "$${f%.json}.args" 2>/dev/null); \
	  echo "== poiparse $$args $$f"; ./$(RELEASE_DIR)/poiparse $$args "$$f" || true; \
	done

test: build-test
	cd $(TEST_DIR) && ctest --output-on-failure -j $(JOBS)
	$(MAKE) --no-print-directory test-python

# The module and the poiparse it is compared with, in Release without
# sanitizers (a module under ASan needs the runtime preloaded into python3).
python:
	@scripts/install-deps.sh $(PYTHON_PACKAGES)
	cmake -S . -B $(PYTHON_DIR) -DCMAKE_BUILD_TYPE=Release -DPOIPARSER_BUILD_TESTS=OFF -DPOIPARSER_SANITIZE= \
	  -DPOIPARSER_PYTHON=ON -DCMAKE_POSITION_INDEPENDENT_CODE=ON -DPYTHON_EXECUTABLE=/usr/bin/python3 >/dev/null
	cmake --build $(PYTHON_DIR) -j $(JOBS) --target poiparser_python poiparse

# The module's tests (tests/python), against build/python/poiparse.
test-python: python
	@scripts/install-deps.sh $(PYTHON_TEST_PACKAGES)
	PYTHONPATH=$(PYTHON_DIR) POIPARSE=$(PYTHON_DIR)/poiparse /usr/bin/python3 -m pytest -q -p no:cacheprovider tests/python

deps:
	@scripts/install-deps.sh $(BUILD_PACKAGES)

# docs/bundles.md, generated from the field tables (a test checks that it is
# up to date).
docs: build
	./$(RELEASE_DIR)/bundle_reference > docs/bundles.md

deps-test:
	@scripts/install-deps.sh $(TEST_PACKAGES)

build: deps
	cmake -S . -B $(RELEASE_DIR) -DCMAKE_BUILD_TYPE=Release -DPOIPARSER_BUILD_TESTS=OFF >/dev/null
	cmake --build $(RELEASE_DIR) -j $(JOBS)

# The test build runs under AddressSanitizer and UndefinedBehaviorSanitizer.
build-test: deps-test
	cmake -S . -B $(TEST_DIR) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DPOIPARSER_SANITIZE=address,undefined >/dev/null
	cmake --build $(TEST_DIR) -j $(JOBS)

# The library, its headers, the CMake package, poiparser.pc, bin/poiparse, its
# manual page and its bash completion, from a Release build without
# sanitizers and tests (in build/release).
install: deps
	cmake -S . -B $(RELEASE_DIR) -DCMAKE_BUILD_TYPE=Release -DPOIPARSER_BUILD_TESTS=OFF -DPOIPARSER_SANITIZE= >/dev/null
	cmake --build $(RELEASE_DIR) -j $(JOBS)
	cmake --install $(RELEASE_DIR) --prefix "$(PREFIX)"

bench:
	@scripts/install-deps.sh $(BENCH_PACKAGES)
	cmake -S . -B $(BENCH_DIR) -DCMAKE_BUILD_TYPE=Release -DPOIPARSER_BUILD_TESTS=OFF -DPOIPARSER_BUILD_BENCH=ON -DPOIPARSER_SANITIZE= >/dev/null
	cmake --build $(BENCH_DIR) -j $(JOBS)
	./$(BENCH_DIR)/bench/poiparse_bench --benchmark_min_time=0.2

# The test suite comes last, so that its summary closes the output.
check:
	@scripts/install-deps.sh $(CHECK_PACKAGES)
	$(MAKE) --no-print-directory check-tsan
	$(MAKE) --no-print-directory fuzz SECONDS=60
	$(MAKE) --no-print-directory check-o2
	$(MAKE) --no-print-directory test-cjson-only
	$(MAKE) --no-print-directory test

# The suite built as an optimised client build is (-O2, no debug information)
# but with assertions on, under AddressSanitizer alone: faults that only the
# optimiser exposes show here. UBSan is left out on purpose: its checks keep
# stores that -O2 would otherwise remove (such as stores into an object after
# its destructor), which is what hid a thread-exit use after free from the
# ASan+UBSan build of make test. The install test is left to make test.
check-o2: deps-test
	cmake -S . -B $(CHECK_O2_DIR) -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_FLAGS_RELEASE=-O2 \
	  -DPOIPARSER_SANITIZE=address >/dev/null
	cmake --build $(CHECK_O2_DIR) -j $(JOBS)
	cd $(CHECK_O2_DIR) && ctest --output-on-failure -j $(JOBS) -LE package

# The concurrency test and the block cache's (blocks freed on other threads
# than made them), built with g++ under ThreadSanitizer.
check-tsan: deps-test
	cmake -S . -B $(TSAN_DIR) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DPOIPARSER_SANITIZE=thread >/dev/null
	cmake --build $(TSAN_DIR) -j $(JOBS) --target concurrency_tests block_cache_tests
	TSAN_OPTIONS=halt_on_error=1 ./$(TSAN_DIR)/tests/concurrency_tests
	TSAN_OPTIONS=halt_on_error=1 ./$(TSAN_DIR)/tests/block_cache_tests

# The whole suite on a build whose CJsonDocument stands on cJSON alone; the
# package test then checks that the package files do without simdjson.
test-cjson-only: deps-test
	cmake -S . -B $(CJSON_ONLY_DIR) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DPOIPARSER_SANITIZE= \
	  -DPOIPARSER_WITH_SIMDJSON=OFF >/dev/null
	cmake --build $(CJSON_ONLY_DIR) -j $(JOBS)
	cd $(CJSON_ONLY_DIR) && ctest --output-on-failure -j $(JOBS)

# The fuzz targets (fuzz/), built with clang: the library's sources are
# compiled into them with libFuzzer's coverage, ASan and UBSan.
build-fuzz:
	@scripts/install-deps.sh $(FUZZ_PACKAGES)
	cmake -S . -B $(FUZZ_DIR) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_COMPILER=$(FUZZ_CXX) \
	  -DPOIPARSER_FUZZ=ON -DPOIPARSER_BUILD_TESTS=OFF -DPOIPARSER_SANITIZE= >/dev/null
	cmake --build $(FUZZ_DIR) -j $(JOBS) --target answer_fuzzer text_fuzzer document_fuzzer tree_fuzzer

# Every target at once, SECONDS each; new inputs stay in build/fuzz/corpus.
fuzz: build-fuzz
	fuzz/run.sh $(FUZZ_DIR) $(SECONDS)

# Rebuilds the checked-in seed corpus from the examples and the tests'
# answers, minimised with -merge=1 (needs python3).
fuzz-corpus: build-fuzz
	rm -rf $(FUZZ_DIR)/seeds fuzz/corpus/answer fuzz/corpus/text
	python3 fuzz/make_seeds.py . $(FUZZ_DIR)/seeds
	mkdir -p fuzz/corpus/answer fuzz/corpus/text
	$(FUZZ_DIR)/fuzz/answer_fuzzer -merge=1 fuzz/corpus/answer $(FUZZ_DIR)/seeds/answer
	$(FUZZ_DIR)/fuzz/text_fuzzer -merge=1 fuzz/corpus/text $(FUZZ_DIR)/seeds/text

# ---- ARM (phones) under emulation --------------------------------------------
# make test-ARCH (arm64: AArch64; armhf: 32-bit ARMv7 hard float):
#   1. installs the cross compiler and qemu-user (install-deps.sh);
#   2. unpacks the target's libraries (CROSS_LIBRARIES) into build/sysroot/ARCH
#      with apt-get download and dpkg -x (scripts/cross-sysroot.sh, which
#      adds ARCH to dpkg's architectures and retries apt-get update). They
#      are not installed with multiarch: that needs identical versions of
#      the native and foreign packages, which a mirror in mid-sync breaks, and
#      libsimdjson-dev cannot be co-installed at all;
#   3. cross-builds the library, poiparse and the tests (Release, no
#      sanitizers) into build/ARCH with cmake/toolchains/TRIPLE.cmake;
#   4. runs the suite under qemu-user, each test program and poiparse as
#      `qemu-ARCH -L /usr/TRIPLE PROGRAM`: the golden tests check that
#      poiparse gives byte for byte the native output (tests/golden) on every
#      example answer. The package test (label `package`) is left out: it
#      installs and builds a native client.
# CROSS_OPTIONS_ARCH adds CMake options to one architecture's build, e.g.
# make test-armhf CROSS_OPTIONS_armhf=-DPOIPARSER_WITH_SIMDJSON=OFF (they stay in
# build/ARCH's CMake cache until it is removed).
TRIPLE_arm64 := aarch64-linux-gnu
TRIPLE_armhf := arm-linux-gnueabihf
CROSS_OPTIONS_arm64 ?=
CROSS_OPTIONS_armhf ?=
CROSS_PACKAGES := cmake make qemu-user python3-jsonschema
CROSS_LIBRARIES := libcjson-dev libcjson1 libgtest-dev libsimdjson-dev libsimdjson14

test-arm64 test-armhf: test-%:
	@scripts/install-deps.sh $(CROSS_PACKAGES) g++-$(TRIPLE_$*)
	@scripts/cross-sysroot.sh $* build/sysroot/$* $(CROSS_LIBRARIES)
	cmake -S . -B build/$* -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/$(TRIPLE_$*).cmake \
	  -DPOIPARSER_CROSS_DEPS=$(CURDIR)/build/sysroot/$* -DCMAKE_BUILD_TYPE=Release \
	  -DPOIPARSER_SANITIZE= $(CROSS_OPTIONS_$*) >/dev/null
	cmake --build build/$* -j $(JOBS)
	cd build/$* && ctest --output-on-failure -j $(JOBS) -LE package

clean:
	rm -rf build
