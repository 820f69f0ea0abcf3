# The two commands of the README and their helpers. Everything real is in the CMake presets, CTest and tools/.

.PHONY: test demo build check asan tsan clang release bench setup format check-headers tidy clean

test: setup
	tools/check
	cmake --preset dev
	cmake --build --preset dev
	tools/run_tests dev

demo: setup
	cmake --preset release
	cmake --build --preset release
	tools/demo build/release

build: setup
	cmake --preset dev
	cmake --build --preset dev

asan tsan: setup
	cmake --preset $@
	cmake --build --preset $@
	ctest --preset $@ -j "$$(nproc)"

clang: setup
	cmake --preset clang
	cmake --build --preset clang

release: setup
	cmake --preset release
	cmake --build --preset release

bench: setup
	cmake --preset bench
	cmake --build --preset bench
	benchmarks/run build/bench

check: setup
	tools/check

# Every header compiles alone.
check-headers: setup
	cmake --preset dev
	cmake --build --preset dev --target headers

# The checks of .clang-tidy over src/; some ten minutes of one core.
tidy: setup
	cmake --preset clang
	tools/tidy build/clang

format:
	git ls-files '*.h' '*.cpp' | xargs clang-format -i

setup:
	@tools/setup

clean:
	rm -rf build
