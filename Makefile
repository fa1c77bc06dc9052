# The two entry points: `make demo` and `make test`. Each installs what is missing first.
SHELL := /bin/bash
ROOT := $(abspath .)
WIN_EXE := $(ROOT)/build/windows/src/portwren.exe
NATIVE_EXE := $(ROOT)/build/native/src/portwren

# Debian packages the build, the tests and the demo need.
PACKAGES := cmake ninja-build g++ make libgtest-dev libbenchmark-dev zlib1g-dev \
            g++-mingw-w64-x86-64-posix wine wine64 socat tmux xxd

.PHONY: all deps native windows tsan asan test test-native test-tsan demo stress bench clean

all: native windows

deps:
	@bash scripts/install-deps.sh $(PACKAGES)

windows: deps
	cmake --preset windows >/dev/null
	cmake --build --preset windows

native: deps windows
	cmake --preset native -DPORTWREN_WIN_EXE=$(WIN_EXE) >/dev/null
	cmake --build --preset native

tsan: deps
	cmake --preset tsan >/dev/null
	cmake --build --preset tsan

asan: deps
	cmake --preset asan >/dev/null
	cmake --build --preset asan

test-native: native
	ctest --preset native

# Threads and the serial emulation again under ThreadSanitizer.
test-tsan: tsan
	ctest --preset tsan -L 'platform|support|port|echo|monitor|stress'

test: test-native test-tsan

demo: native
	bash scripts/demo.sh $(NATIVE_EXE) $(ROOT)/build/native/tests/fault_relay

# Ten minutes of echo in urge mode over a socat pair; fails on the first stall.
stress: native
	bash scripts/stress.sh $(NATIVE_EXE) 600

bench: native
	bash scripts/run-benchmarks.sh $(ROOT)/build/native/bench

clean:
	rm -rf build
