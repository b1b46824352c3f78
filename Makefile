# The front door: `make demo` and `make test`.
BUILD ?= build
TOOLCHAIN := cmake/mingw-w64-x86_64.cmake

.PHONY: all bootstrap build demo test bench cycles mutants clean

all: build

bootstrap:
	@tools/bootstrap.sh

$(BUILD)/CMakeCache.txt: | bootstrap
	cmake -S . -B $(BUILD) -DCMAKE_TOOLCHAIN_FILE=$(TOOLCHAIN)

build: bootstrap $(BUILD)/CMakeCache.txt
	cmake --build $(BUILD) -j2

demo: build
	tools/demo.sh $(BUILD)

test: build
	tools/test.sh $(BUILD)

bench: build
	tools/bench.sh $(BUILD)

# Install and removal cycles of the demo package, and what they leave; not part of `make test`.
CYCLES ?= 10
cycles: build
	tools/cycles.sh $(BUILD) $(CYCLES)

# Small faults made one at a time in the library; see tools/mutants.py.
SEED ?= 1
N ?= 60
FOLDERS ?=
ONLY ?=
BY_TEST ?=
mutants: build
	SEED=$(SEED) N=$(N) FOLDERS="$(FOLDERS)" ONLY="$(ONLY)" BY_TEST="$(BY_TEST)" tools/mutants.py $(BUILD)

clean:
	rm -rf $(BUILD)
