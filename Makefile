# Entry points. Each target installs what is missing, configures and builds.
#
#   make             build the library, tools and tests (build/)
#   make test        ... and run every test suite
#   make demo        zuvero-demo, a shop with a support chat, against a local dev server
#                    (offscreen and scripted, writing screenshots, without a display)
#   make demo-cli    a short conversation through zuvero-cli with a local dev server
#   make test-sanitize   the same suites under AddressSanitizer + UBSan (build-asan/)
#   make test-tsan   the threaded suites (operations, network, facade) under ThreadSanitizer
#   make fuzz        every libFuzzer target for FUZZ_SECONDS (60) each (build-fuzz/)
#   make bench       the benchmarks' table of ratios (build/)
#   make docs        the API reference of the public headers (build/docs/html)
#   make package     Debian packages: library, -dev, tools (build/packages)
#   make format / check-format

BUILD      ?= build
ASAN_BUILD ?= build-asan
TSAN_BUILD ?= build-tsan
FUZZ_SECONDS ?= 60
JOBS       ?= $(shell nproc)
CTEST       = ctest --output-on-failure --no-tests=error -j $(JOBS)

.PHONY: all build demo demo-cli test test-sanitize test-tsan fuzz bench docs package format check-format clean

all: build

build:
	scripts/setup.sh $(BUILD)

# The main job: the demo application with a local dev server that answers by itself.
demo:
	BUILD=$(BUILD) scripts/demo.sh

demo-cli:
	BUILD=$(BUILD) scripts/demo-cli.sh

test: build
	$(CTEST) --test-dir $(BUILD)

test-sanitize:
	scripts/setup.sh $(ASAN_BUILD) -DZUVERO_SANITIZER=address -DCMAKE_BUILD_TYPE=Debug
	$(CTEST) --test-dir $(ASAN_BUILD)

# The suites whose work crosses threads: operations, the network code (replies are checked on
# worker threads) and the facade over it.
TSAN_LABELS = ops net core
test-tsan:
	scripts/setup.sh --deps-only
	cmake -S . -B $(TSAN_BUILD) -G Ninja -DZUVERO_SANITIZER=thread -DCMAKE_BUILD_TYPE=Debug
	cmake --build $(TSAN_BUILD) --parallel $(JOBS) --target $(addprefix zuvero_tests_,$(TSAN_LABELS))
	$(CTEST) --test-dir $(TSAN_BUILD) -L '^($(subst $(space),|,$(TSAN_LABELS)))$$'

space := $(subst ,, )

fuzz:
	fuzz/run.sh --time $(FUZZ_SECONDS)

bench: build
	$(BUILD)/bench/zuvero-bench

# Doxygen's warnings are errors: every public name must be documented.
docs:
	scripts/setup.sh --deps-only
	test -f $(BUILD)/CMakeCache.txt || cmake -S . -B $(BUILD) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo
	cmake --build $(BUILD) --target docs

package: build
	cmake --build $(BUILD) --target package

# Tracked files and new ones not yet added (but not ignored ones).
SOURCES = git ls-files --cached --others --exclude-standard '*.cpp' '*.h'

format:
	$(SOURCES) | xargs clang-format -i

check-format:
	$(SOURCES) | xargs clang-format --dry-run --Werror

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(TSAN_BUILD) build-fuzz
