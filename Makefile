# velzip: `make demo` runs the tool on a built-in sample; `make test` runs the
# whole suite. Both install what is missing first (Debian 12, as root).
BUILD ?= build
JOBS ?= $(shell nproc)
CMAKE_FLAGS ?= -DCMAKE_BUILD_TYPE=RelWithDebInfo

.PHONY: all deps configure build test demo bench install clean

all: build

deps:
	@scripts/install-deps

configure: deps
	@cmake -S . -B $(BUILD) $(CMAKE_FLAGS) >/dev/null

build: configure
	@cmake --build $(BUILD) -j $(JOBS)

test: build
	@cd $(BUILD) && ctest --output-on-failure -j $(JOBS)

demo: build
	@if [ -x scripts/demo ]; then scripts/demo $(BUILD); else echo "demo: the command-line tool is not there yet"; fi

bench: build
	@scripts/bench $(BUILD)

install: build
	@cmake --install $(BUILD)

clean:
	@rm -rf $(BUILD)
