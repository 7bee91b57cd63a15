# The two commands: `make demo` and `make test`. Each installs what it needs (as root on
# Debian), configures, builds and runs.
BUILD      ?= build
BUILD_SAN  ?= build-sanitize
JOBS       ?= $(shell nproc)
CMAKE_ARGS ?=

# The common folder, as the library finds it: QK_COMMON_ROOT, else XDG_DATA_HOME/quendarik,
# else ~/.local/share/quendarik. The default HRTF sets go below it.
COMMON_ROOT ?= $(or $(QK_COMMON_ROOT),$(if $(XDG_DATA_HOME),$(XDG_DATA_HOME)/quendarik),$(HOME)/.local/share/quendarik)
HRTF_DIR    := $(COMMON_ROOT)/TORVELLAN/Common/QKHRTF
HRTF_SETS   := VORLAN1_16s_DFE.qkhrtf KEMAR_SMALL_16s_DFE.qkhrtf

.PHONY: all deps build build-sanitize demo test test-fast test-sanitize bench format clean hrtf-sets

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

# The whole suite, then the same suite under AddressSanitizer and UndefinedBehaviorSanitizer.
test: test-fast test-sanitize

test-fast: build hrtf-sets
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS)

test-sanitize: build-sanitize
	cd $(BUILD_SAN) && ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 \
	  UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 ctest --output-on-failure -j $(JOBS)

bench: build
	$(BUILD)/bench/quendarik_bench

format:
	clang-format -i $$(git ls-files '*.cpp' '*.h')

clean:
	rm -rf $(BUILD) $(BUILD_SAN)
