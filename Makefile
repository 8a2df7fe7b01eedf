# Varnel: `make run` installs what is missing, builds and starts the app; `make test` runs every test.
BUILD      ?= build
ASAN_BUILD ?= build-asan
BENCH_BUILD ?= build-bench
JOBS       ?= $(shell nproc)
WERROR     := $(if $(CI),ON,OFF)
CMAKE_COMMON := -G Ninja -DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DVARNEL_WERROR=$(WERROR)

.PHONY: all deps build run test test-asan bench format clean

all: build

deps:
	@scripts/install-deps

$(BUILD)/build.ninja:
	cmake -S . -B $(BUILD) $(CMAKE_COMMON) -DCMAKE_BUILD_TYPE=RelWithDebInfo

build: deps $(BUILD)/build.ninja
	cmake --build $(BUILD) -j $(JOBS)

run: build
	$(BUILD)/src/varnel

test: build
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS)
	$(MAKE) --no-print-directory test-asan

# Unit tests once more under AddressSanitizer and UndefinedBehaviorSanitizer.
test-asan: deps
	cmake -S . -B $(ASAN_BUILD) $(CMAKE_COMMON) -DCMAKE_BUILD_TYPE=Debug -DVARNEL_SANITIZE=ON -DVARNEL_BENCH=OFF
	cmake --build $(ASAN_BUILD) -j $(JOBS)
	cd $(ASAN_BUILD) && ctest --output-on-failure -j $(JOBS) -L unit

bench: deps
	cmake -S . -B $(BENCH_BUILD) $(CMAKE_COMMON) -DCMAKE_BUILD_TYPE=Release -DVARNEL_BENCH=ON
	cmake --build $(BENCH_BUILD) -j $(JOBS)
	@for b in $$(find $(BENCH_BUILD)/bench -maxdepth 1 -type f -executable -name 'bench_*'); do \
	  echo "== $$b"; $$b || exit 1; done

format:
	find src tests bench -name '*.cpp' -o -name '*.h' | xargs clang-format -i

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(BENCH_BUILD)
