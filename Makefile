# Thin wrapper over the CMake presets. `make run` builds and runs the main job (the
# default simulation; `make run ARGS="--table single"` passes options),
# `make test` builds and runs every test; both install what they need first.
.PHONY: all setup run test test-debug clean

all: test

setup:
	@scripts/setup.sh

run: setup
	@cmake --preset release >/dev/null
	@cmake --build --preset release --target mht
	@./build/release/tools/mht simulate $(ARGS)

test: setup
	@cmake --workflow --preset release

test-debug: setup
	@cmake --workflow --preset debug

clean:
	rm -rf build
