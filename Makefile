# The two entry points: `make demo` and `make test`. Each installs what is missing first.
SHELL := /bin/bash
ROOT := $(abspath .)
WIN_EXE := $(ROOT)/build/windows/src/portwren.exe
NATIVE_EXE := $(ROOT)/build/native/src/portwren

# Debian packages the build, the tests and the demo need.
PACKAGES := cmake ninja-build g++ make libgtest-dev libbenchmark-dev zlib1g-dev \
            g++-mingw-w64-x86-64-posix wine wine64 socat tmux xxd clang-format clang libclang-rt-14-dev

.PHONY: all deps format check-format native windows tsan asan test test-native test-windows test-asan test-tsan demo \
        bench clean stress fuzz fuzz-build test-fuzz test-wine-serial

all: native windows

deps:
	@bash scripts/install-deps.sh $(PACKAGES)

# Formats the tree by its own .clang-format; `make test` refuses an unformatted file first.
format: deps
	bash scripts/check-format.sh --fix

check-format: deps
	bash scripts/check-format.sh

windows: deps
	cmake --preset windows >/dev/null
	cmake --build --preset windows

native: deps windows
	cmake --preset native -DPORTWREN_WIN_EXE=$(WIN_EXE) >/dev/null
	cmake --build --preset native

# Under ThreadSanitizer only what has threads: the platform layer, support, port, echo and monitors.
TSAN_TARGETS := platform_tests support_tests port_tests echo_tests monitor_tests portwren fault_relay
tsan: deps
	cmake --preset tsan >/dev/null
	cmake --build --preset tsan --target $(TSAN_TARGETS)

asan: deps windows
	cmake --preset asan -DPORTWREN_WIN_EXE=$(WIN_EXE) >/dev/null
	cmake --build --preset asan

# libFuzzer targets (clang, with AddressSanitizer and UndefinedBehaviorSanitizer).
fuzz-build: deps
	cmake --preset fuzz >/dev/null
	cmake --build --preset fuzz

# Each fuzzer a few seconds.
test-fuzz: fuzz-build
	ctest --preset fuzz

# Each fuzzer FUZZ_SECONDS on the corpus kept in tests/fuzz/corpus.
FUZZ_SECONDS ?= 300
fuzz: fuzz-build
	bash scripts/run-fuzzers.sh $(ROOT)/build/fuzz/tests/fuzz $(ROOT)/tests/fuzz/corpus $(FUZZ_SECONDS)

# The whole suite on the plain build; `make test` runs it under the sanitizers instead.
test-native: native
	ctest --preset native

# The whole suite once, under AddressSanitizer and UndefinedBehaviorSanitizer (leaks too): unit,
# end-to-end (also the Windows build under Wine, driven from here), scripts, campaign and stress.
test-asan: asan
	ctest --preset asan

# The unit suites built for Windows, run under Wine, the serial cases on a socat line among them.
test-windows: windows
	ctest --preset windows

# The Windows serial cases alone.
test-wine-serial: windows
	ctest --preset windows -L wine-serial

# Threads and the serial emulation again under ThreadSanitizer; the minute of stress is run once,
# under test-asan.
test-tsan: tsan
	ctest --preset tsan -L 'platform|support|port|echo|monitor'

# The plain build is compiled (warnings are errors at its optimisation too; the demo runs it), and
# the suite runs once, under the sanitizers.
test: check-format native test-windows test-asan test-tsan test-fuzz


demo: native
	bash scripts/demo.sh $(NATIVE_EXE) $(ROOT)/build/native/tests/fault_relay

# The long detection campaign (one line fault per trial, in-process and through the relay), then
# ten minutes of echo in urge mode over a socat pair, which fails on the first stall.
stress: native
	$(ROOT)/build/native/tests/detect_campaign --trials 10000 --e2e 40 --clean-bytes 100000000
	bash scripts/stress.sh $(NATIVE_EXE) 600

bench: native
	bash scripts/run-benchmarks.sh $(ROOT)/build/native/bench

clean:
	rm -rf build
