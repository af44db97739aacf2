# The two commands: `make demo` cleans a real mesh and shows what happened, `make test` runs all tests.
# Both install what is missing (Debian packages, as root or through sudo), configure and build first.

MODEL ?= examples/models/pavilion.obj
BUILD := build/release
JOBS ?= $(shell nproc)

.PHONY: demo test bench deps configure build clean

demo: configure
	@cmake --build $(BUILD) -j $(JOBS) --target facetbox_program
	@scripts/demo.sh $(BUILD)/tools/facetbox "$(MODEL)" $(BUILD)/demo

test: build
	ctest --test-dir $(BUILD) --output-on-failure --no-tests=error -j $(JOBS)

bench: build
	$(BUILD)/bench/facetbox_bench $(BENCH_ARGS)

deps:
	@scripts/install-deps.sh build test

configure: deps
	@[ -f $(BUILD)/build.ninja ] || cmake --preset release

build: configure
	@cmake --build $(BUILD) -j $(JOBS)

clean:
	rm -rf build
