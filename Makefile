# Varnel: `make run` installs what is missing, builds and starts the app; `make test` runs every test.
BUILD      ?= build
ASAN_BUILD ?= build-asan
BENCH_BUILD ?= build-bench
FUZZ_BUILD ?= build-fuzz
FUZZ_SECONDS ?= 30
JOBS       ?= $(shell nproc)
WERROR     := $(if $(CI),ON,OFF)
CMAKE_COMMON := -G Ninja -DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DVARNEL_WERROR=$(WERROR)
CONFIGURE  := cmake -S . -B $(BUILD) $(CMAKE_COMMON) -DCMAKE_BUILD_TYPE=RelWithDebInfo
# One build folder for both: the application's objects are shared. It is configured without
# tests for the application alone, and once more with them the first time they are wanted.
CONFIGURE_APP := [ -f $(BUILD)/build.ninja ] || $(CONFIGURE) -DVARNEL_TESTS=OFF -DVARNEL_BENCH=OFF
CONFIGURE_ALL := grep -qx 'VARNEL_TESTS:BOOL=ON' $(BUILD)/CMakeCache.txt 2>/dev/null && \
                 grep -qx 'VARNEL_BENCH:BOOL=ON' $(BUILD)/CMakeCache.txt && [ -f $(BUILD)/build.ninja ] || \
                 $(CONFIGURE) -DVARNEL_TESTS=ON -DVARNEL_BENCH=ON

.PHONY: all deps deps-package deps-test build build-all run test test-asan fuzz bench package \
        screenshots format clean

all: build

deps:
	@scripts/install-deps

deps-package:
	@scripts/install-deps --package

deps-test:
	@scripts/install-deps --test

# The application alone: varnel and varnel-cli, no tests.
build: deps
	@$(CONFIGURE_APP)
	cmake --build $(BUILD) --target varnel varnel-cli -j $(JOBS)

# The application, its tests and benchmarks.
build-all: deps-test
	@$(CONFIGURE_ALL)
	cmake --build $(BUILD) -j $(JOBS)

run: build
	$(BUILD)/bin/varnel

test: build-all
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS)
	$(MAKE) --no-print-directory fuzz
	$(MAKE) --no-print-directory test-asan

# The Debian package (build/varnel_VERSION-1_ARCH.deb); install it with apt install ./build/varnel_*.deb
package: deps-package
	@$(CONFIGURE_APP)
	cmake --build $(BUILD) --target package

# The software centre's screenshots (data/screenshots), drawn offscreen from a made-up library.
screenshots: build-all
	$(BUILD)/tests/ui/make_screenshots data/screenshots

# Unit tests once more under AddressSanitizer and UndefinedBehaviorSanitizer.
test-asan: deps-test
	cmake -S . -B $(ASAN_BUILD) $(CMAKE_COMMON) -DCMAKE_BUILD_TYPE=Debug -DVARNEL_SANITIZE=ON -DVARNEL_BENCH=OFF
	cmake --build $(ASAN_BUILD) -j $(JOBS)
	cd $(ASAN_BUILD) && LSAN_OPTIONS=suppressions=$(CURDIR)/tests/lsan.supp ctest --output-on-failure -j $(JOBS) -L unit

# A short libFuzzer run over the archive extractor and manifest reader, when clang is there.
fuzz: deps-test
	@if command -v clang++ >/dev/null 2>&1; then \
	  cmake -S . -B $(FUZZ_BUILD) -G Ninja -DCMAKE_CXX_COMPILER=clang++ \
	    -DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	    -DVARNEL_FUZZ=ON -DVARNEL_BENCH=OFF && \
	  cmake --build $(FUZZ_BUILD) --target archive_fuzzer -j $(JOBS) && \
	  mkdir -p $(FUZZ_BUILD)/corpus && cp fuzz/corpus/* $(FUZZ_BUILD)/corpus/ && \
	  $(FUZZ_BUILD)/fuzz/archive_fuzzer -max_total_time=$(FUZZ_SECONDS) -rss_limit_mb=4096 \
	    $(FUZZ_BUILD)/corpus; \
	else echo "fuzz: clang++ not found, skipped"; fi

bench: deps-test
	cmake -S . -B $(BENCH_BUILD) $(CMAKE_COMMON) -DCMAKE_BUILD_TYPE=Release -DVARNEL_BENCH=ON
	cmake --build $(BENCH_BUILD) -j $(JOBS)
	@for b in $$(find $(BENCH_BUILD)/bench -maxdepth 1 -type f -executable -name 'bench_*'); do \
	  echo "== $$b"; $$b || exit 1; done

format:
	find src tests bench -name '*.cpp' -o -name '*.h' | xargs clang-format -i

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(BENCH_BUILD) $(FUZZ_BUILD)
