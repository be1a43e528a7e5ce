# Entry points. Each target installs what is missing, configures and builds.
#
#   make             build the library, tools and tests (build/)
#   make test        ... and run every test suite
#   make test-sanitize   the same suites under AddressSanitizer + UBSan (build-asan/)
#   make format / check-format

BUILD      ?= build
ASAN_BUILD ?= build-asan
JOBS       ?= $(shell nproc)
CTEST       = ctest --output-on-failure --no-tests=error -j $(JOBS)

.PHONY: all build test test-sanitize format check-format clean

all: build

build:
	scripts/setup.sh $(BUILD)

test: build
	$(CTEST) --test-dir $(BUILD)

test-sanitize:
	scripts/setup.sh $(ASAN_BUILD) -DZUVERO_SANITIZER=address -DCMAKE_BUILD_TYPE=Debug
	$(CTEST) --test-dir $(ASAN_BUILD)

format:
	git ls-files '*.cpp' '*.h' | xargs clang-format -i

check-format:
	git ls-files '*.cpp' '*.h' | xargs clang-format --dry-run --Werror

clean:
	rm -rf $(BUILD) $(ASAN_BUILD)
