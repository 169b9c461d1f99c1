# The two set-up commands of the project:
#   make run    installs what is missing, builds, and parses the example answers
#   make test   installs what is missing, builds, and runs the test suite
#   make install PREFIX=DIR   builds a Release copy and installs the library
#   make bench  builds the benchmarks in Release and prints their table
JOBS ?= 2
RELEASE_DIR := build/release
TEST_DIR := build/test
BENCH_DIR := build/bench
BUILD_PACKAGES := cmake g++ make libcjson-dev pkg-config
TEST_PACKAGES := $(BUILD_PACKAGES) libgtest-dev
BENCH_PACKAGES := $(BUILD_PACKAGES) libbenchmark-dev libsimdjson-dev
EXAMPLES := $(sort $(wildcard examples/*.json))
PREFIX ?= /usr/local

.PHONY: run test bench deps deps-test build build-test install clean

# Each example is read with the arguments in examples/NAME.args, if any.
run: build
	@for f in $(EXAMPLES); do \
	  args=$$(cat "$${f%.json}.args" 2>/dev/null); \
	  echo "== poiparse $$args $$f"; ./$(RELEASE_DIR)/poiparse $$args "$$f" || true; \
	done

test: build-test
	cd $(TEST_DIR) && ctest --output-on-failure -j $(JOBS)

deps:
	@scripts/install-deps.sh $(BUILD_PACKAGES)

deps-test:
	@scripts/install-deps.sh $(TEST_PACKAGES)

build: deps
	cmake -S . -B $(RELEASE_DIR) -DCMAKE_BUILD_TYPE=Release -DPOIPARSER_BUILD_TESTS=OFF >/dev/null
	cmake --build $(RELEASE_DIR) -j $(JOBS)

# The test build runs under AddressSanitizer and UndefinedBehaviorSanitizer.
build-test: deps-test
	cmake -S . -B $(TEST_DIR) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DPOIPARSER_SANITIZE=address,undefined >/dev/null
	cmake --build $(TEST_DIR) -j $(JOBS)

# The library, its headers, the CMake package and poiparser.pc, from a
# Release build without sanitizers and tests (in build/release).
install: deps
	cmake -S . -B $(RELEASE_DIR) -DCMAKE_BUILD_TYPE=Release -DPOIPARSER_BUILD_TESTS=OFF -DPOIPARSER_SANITIZE= >/dev/null
	cmake --build $(RELEASE_DIR) -j $(JOBS)
	cmake --install $(RELEASE_DIR) --prefix "$(PREFIX)"

bench:
	@scripts/install-deps.sh $(BENCH_PACKAGES)
	cmake -S . -B $(BENCH_DIR) -DCMAKE_BUILD_TYPE=Release -DPOIPARSER_BUILD_TESTS=OFF -DPOIPARSER_BUILD_BENCH=ON -DPOIPARSER_SANITIZE= >/dev/null
	cmake --build $(BENCH_DIR) -j $(JOBS)
	./$(BENCH_DIR)/bench/poiparse_bench --benchmark_min_time=0.2

clean:
	rm -rf build
