# The two commands: `make demo` and `make test`. Each installs what it needs (as root on
# Debian), configures, builds and runs.
BUILD      ?= build
BUILD_SAN  ?= build-sanitize
BUILD_TSAN ?= build-thread
JOBS       ?= $(shell nproc)
CMAKE_ARGS ?=

# The common folder, as the library finds it: QK_COMMON_ROOT, else XDG_DATA_HOME/quendarik,
# else ~/.local/share/quendarik. The default HRTF sets go below it.
COMMON_ROOT ?= $(or $(QK_COMMON_ROOT),$(if $(XDG_DATA_HOME),$(XDG_DATA_HOME)/quendarik),$(HOME)/.local/share/quendarik)
HRTF_DIR    := $(COMMON_ROOT)/TORVELLAN/Common/QKHRTF
HRTF_SETS   := VORLAN1_16s_DFE.qkhrtf KEMAR_SMALL_16s_DFE.qkhrtf

.PHONY: all deps build build-sanitize build-thread demo test test-fast test-sanitize test-thread \
        bench format clean hrtf-sets

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

$(BUILD_TSAN)/CMakeCache.txt: | deps
	cmake -S . -B $(BUILD_TSAN) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQK_TSAN=ON -DQK_BENCH=OFF \
	  -DQK_TOOLS=OFF $(CMAKE_ARGS)

# Only the tests of host threads against the playing engine are built under ThreadSanitizer.
build-thread: deps $(BUILD_TSAN)/CMakeCache.txt
	cmake --build $(BUILD_TSAN) -j $(JOBS) --target quendarik_thread_tests

# The build makes the default HRTF sets (from the MIT KEMAR measurements of libmysofa1);
# they are copied to where the engine asks for them, unless a newer copy is there.
hrtf-sets: build
	@mkdir -p "$(HRTF_DIR)"
	@for f in $(HRTF_SETS); do \
	  if [ -f "$(BUILD)/data/TORVELLAN/Common/QKHRTF/$$f" ]; then \
	    cp -u "$(BUILD)/data/TORVELLAN/Common/QKHRTF/$$f" "$(HRTF_DIR)/$$f"; \
	  else echo "hrtf-sets: $$f was not made" >&2; fi; \
	done

demo: build hrtf-sets
	$(BUILD)/tools/quendarik demo

# The whole suite, then the same suite under AddressSanitizer and UndefinedBehaviorSanitizer,
# then the thread tests under ThreadSanitizer.
test: test-fast test-sanitize test-thread

test-fast: build hrtf-sets
	cd $(BUILD) && $(CURDIR)/scripts/with-pulse.sh ctest --output-on-failure -j $(JOBS)

test-sanitize: build-sanitize
	cd $(BUILD_SAN) && ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 \
	  UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 $(CURDIR)/scripts/with-pulse.sh ctest --output-on-failure -j $(JOBS)

# setarch -R: ThreadSanitizer needs the address layout without the kernel's widest
# randomisation.
test-thread: build-thread
	QK_STRESS_SECONDS=60 TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 \
	  setarch $$(uname -m) -R \
	  $(BUILD_TSAN)/tests/quendarik_thread_tests

bench: build
	$(BUILD)/bench/quendarik_bench

format:
	clang-format -i $$(git ls-files '*.cpp' '*.h')

clean:
	rm -rf $(BUILD) $(BUILD_SAN) $(BUILD_TSAN)
