# Thin wrapper over the CMake presets. A bare `make` builds the release preset and runs
# nothing; `make run` builds and runs the main job (the default simulation;
# `make run ARGS="--table single"` passes options), `make test` builds and runs every test;
# all three install what they need first.
.PHONY: all build setup run test test-debug clean

all: build

build: setup
	@cmake --preset release >/dev/null
	@cmake --build --preset release

setup:
	@scripts/setup.sh

run: setup
	@cmake --preset release >/dev/null
	@cmake --build --preset release --target mht
	@./build/release/tools/mht simulate $(ARGS)

# The tests print short (scripts/run-tests.sh): failures in full, then CTest's summary.
test: setup
	@cmake --preset release >/dev/null
	@cmake --build --preset release
	@scripts/run-tests.sh release

test-debug: setup
	@cmake --preset debug >/dev/null
	@cmake --build --preset debug
	@scripts/run-tests.sh debug

clean:
	rm -rf build

# Reliability work. `make fuzz` builds the libFuzzer harnesses (clang, ASan/UBSan) and runs
# each for FUZZ_SECONDS; `make test-tsan` runs the thread-safe mode's tests under
# ThreadSanitizer; `make soak` runs mht_soak (`make soak SOAK_ARGS="--requests 200000"`).
.PHONY: fuzz test-tsan soak
FUZZ_SECONDS ?= 60
SOAK_ARGS ?=

fuzz: setup
	@cmake --preset fuzz >/dev/null
	@cmake --build --preset fuzz
	@fuzz/run-fuzzers.sh build/fuzz $(FUZZ_SECONDS)

test-tsan: setup
	@cmake --workflow --preset tsan

soak: setup
	@cmake --preset release >/dev/null
	@cmake --build --preset release --target mht_soak
	@./build/release/bench/mht_soak $(SOAK_ARGS)

# Debian packages: `make packages` builds the release preset, makes the .deb files in
# build/release/packages with CPack and checks them with lintian (docs/packaging.md).
.PHONY: packages
packages: setup
	@cmake --preset release >/dev/null
	@cmake --build --preset release
	@rm -f build/release/packages/*.deb
	@cd build/release && cpack -G DEB
	@lintian --fail-on error,warning --suppress-tags-from-file packaging/lintian-accepted build/release/packages/*.deb
	@echo "packages: lintian found nothing beyond packaging/lintian-accepted"

# The layout of .clang-format: `make format` applies it (to new files too), `make format-check` (CI) fails on
# any file that differs from it.
.PHONY: format format-check
FORMAT_FILES = $(shell git ls-files --cached --others --exclude-standard '*.cpp' '*.h' | grep -v '^fuzz/corpus\|^fuzz/regressions')

format:
	@clang-format -i $(FORMAT_FILES)

format-check:
	@clang-format --dry-run -Werror $(FORMAT_FILES)

# clang-tidy with the checks of .clang-tidy over the framework, the library and the tool.
.PHONY: tidy
tidy: setup
	@cmake --preset tidy >/dev/null
	@cmake --build --preset tidy
