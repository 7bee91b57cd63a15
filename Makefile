# The two commands: `make demo` and `make test`. Each installs what it needs (as root on
# Debian), configures, builds and runs.
BUILD      ?= build
BUILD_SAN  ?= build-sanitize
JOBS       ?= $(shell nproc)
CMAKE_ARGS ?=

.PHONY: all deps build build-sanitize demo test test-fast test-sanitize bench format clean

all: build

deps:
	@bash scripts/install-deps.sh

$(BUILD)/CMakeCache.txt: | deps
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo $(CMAKE_ARGS)

$(BUILD_SAN)/CMakeCache.txt: | deps
	cmake -S . -B $(BUILD_SAN) -DCMAKE_BUILD_TYPE=Debug -DQK_SANITIZE=ON -DQK_BENCH=OFF $(CMAKE_ARGS)

build: deps $(BUILD)/CMakeCache.txt
	cmake --build $(BUILD) -j $(JOBS)

build-sanitize: deps $(BUILD_SAN)/CMakeCache.txt
	cmake --build $(BUILD_SAN) -j $(JOBS)

demo: build
	$(BUILD)/tools/quendarik demo

# The whole suite, then the same suite under AddressSanitizer and UndefinedBehaviorSanitizer.
test: test-fast test-sanitize

test-fast: build
	cd $(BUILD) && $(CURDIR)/scripts/with-pulse.sh ctest --output-on-failure -j $(JOBS)

test-sanitize: build-sanitize
	cd $(BUILD_SAN) && ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 \
	  UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 $(CURDIR)/scripts/with-pulse.sh ctest --output-on-failure -j $(JOBS)

bench: build
	$(BUILD)/bench/quendarik_bench

format:
	clang-format -i $$(git ls-files '*.cpp' '*.h')

clean:
	rm -rf $(BUILD) $(BUILD_SAN)
