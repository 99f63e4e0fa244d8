# The commands of the README. Each configures its own build folder under
# build/ on first use, builds, and runs.

space := $(subst ,, )
JOBS ?= $(shell nproc 2>/dev/null || echo 2)
GENERATOR := $(shell command -v ninja >/dev/null 2>&1 && echo "-G Ninja")
# The project's own builds treat warnings as errors; a packager's plain
# cmake build does not.
CMAKE_ARGS ?=
WARNINGS := -DQZ_WERROR=ON

RELEASE := build/release
OPTIMISED := build/optimised
ASAN := build/asan
TSAN := build/tsan
HOST := build/host
WINDOWS := build/windows
WINTEST := build/wintest
TEST32 := build/test32
BENCH := build/bench
FUZZ := build/fuzz
COVERAGE := build/coverage

.PHONY: all demo test release asan tsan coverage windows wintest test32 bench fuzz fuzz-run install-check clean

all: $(RELEASE)/CMakeCache.txt
	cmake --build $(RELEASE) -j $(JOBS)

$(RELEASE)/CMakeCache.txt:
	cmake -S . -B $(RELEASE) $(GENERATOR) $(WARNINGS) -DCMAKE_BUILD_TYPE=RelWithDebInfo $(CMAKE_ARGS)

demo: all
	$(RELEASE)/qzk demo

test: all
	cd $(RELEASE) && ctest --output-on-failure -j $(JOBS)

# The build a packager makes (Release, -O3), with warnings as errors so that
# the optimiser's warnings are seen, and the suite run on it.
$(OPTIMISED)/CMakeCache.txt:
	cmake -S . -B $(OPTIMISED) $(GENERATOR) $(WARNINGS) -DCMAKE_BUILD_TYPE=Release $(CMAKE_ARGS)

release: $(OPTIMISED)/CMakeCache.txt
	cmake --build $(OPTIMISED) -j $(JOBS)
	cd $(OPTIMISED) && ctest --output-on-failure -j $(JOBS)

$(ASAN)/CMakeCache.txt:
	cmake -S . -B $(ASAN) $(GENERATOR) $(WARNINGS) -DCMAKE_BUILD_TYPE=Debug -DQZ_SANITIZE=ON $(CMAKE_ARGS)

asan: $(ASAN)/CMakeCache.txt
	cmake --build $(ASAN) -j $(JOBS)
	cd $(ASAN) && ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 \
	    UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
	    ctest --output-on-failure -j $(JOBS)

# The suite under ThreadSanitizer. Every test runs under it; a lock-order
# inversion counts as a failure even when the run happens not to hang.
$(TSAN)/CMakeCache.txt:
	cmake -S . -B $(TSAN) $(GENERATOR) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQZ_TSAN=ON $(CMAKE_ARGS)

tsan: $(TSAN)/CMakeCache.txt
	cmake --build $(TSAN) -j $(JOBS)
	cd $(TSAN) && TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1" \
	    ctest --output-on-failure -j $(JOBS)

# How much of the library the suite runs: a Debug build with gcov counters,
# the suite, then gcovr's line and branch figures per source folder.
$(COVERAGE)/CMakeCache.txt:
	cmake -S . -B $(COVERAGE) $(GENERATOR) $(WARNINGS) -DCMAKE_BUILD_TYPE=Debug -DQZ_COVERAGE=ON $(CMAKE_ARGS)

coverage: $(COVERAGE)/CMakeCache.txt
	cmake --build $(COVERAGE) -j $(JOBS)
	find $(COVERAGE) -name '*.gcda' -delete
	cd $(COVERAGE) && ctest --output-on-failure -j $(JOBS)
	gcovr -r . --object-directory $(COVERAGE) -j $(JOBS) \
	    -e 'tests/' -e 'bench/' -e 'fuzz/' -e '/usr/' -e '$(COVERAGE)/' \
	    --json-summary $(COVERAGE)/summary.json --txt $(COVERAGE)/coverage.txt
	python3 cmake/coverage_summary.py $(COVERAGE)/summary.json \
	    include base kernel chunkfiles audioformat documents platform -- tools

# The 32-bit Windows DLL. The export generator runs on the host, so it is
# built natively first.
$(HOST)/CMakeCache.txt:
	cmake -S . -B $(HOST) $(GENERATOR) $(WARNINGS) -DQZ_TESTS=OFF

$(WINDOWS)/CMakeCache.txt: $(HOST)/CMakeCache.txt
	cmake --build $(HOST) --target qz_exportgen -j $(JOBS)
	cmake -S . -B $(WINDOWS) $(GENERATOR) $(WARNINGS) -DCMAKE_BUILD_TYPE=Release \
	    -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-i686.cmake \
	    -DQZ_EXPORTGEN=$(CURDIR)/$(HOST)/qz_exportgen

windows: $(WINDOWS)/CMakeCache.txt
	cmake --build $(HOST) --target qz_exportgen -j $(JOBS)
	cmake --build $(WINDOWS) -j $(JOBS)

# GoogleTest built from Debian's sources with the compiler and flags of a
# suite: $(call gtest,FOLDER,CMAKE ARGUMENTS).
GTEST_SOURCE ?= /usr/src/googletest
define gtest
	cmake -S $(GTEST_SOURCE) -B $(1)/build $(GENERATOR) -DBUILD_GMOCK=OFF \
	    -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX=$(CURDIR)/$(1) $(2)
	cmake --build $(1)/build -j $(JOBS)
	cmake --install $(1)/build
endef

# The whole suite cross-built for 64-bit Windows against the real
# <windows.h> and run under Wine through CTest. The 32-bit Wine cannot be had
# on the build machines, so the 64-bit build stands in for the Windows code
# paths. Wine keeps its prefix under build/; no display is needed, and one
# wine server serves the whole run.
GTEST_WIN64 := build/gtest-win64
WINE64 ?= $(shell command -v wine64 2>/dev/null || echo /usr/lib/wine/wine64)
WINESERVER ?= $(shell command -v wineserver 2>/dev/null || echo /usr/lib/wine/wineserver)
WINE_PREFIX := $(CURDIR)/build/wine
WINE_ENV := WINEPREFIX=$(WINE_PREFIX) WINEDEBUG=-all WINEDLLOVERRIDES=mscoree,mshtml= DISPLAY=

$(GTEST_WIN64)/lib/cmake/GTest/GTestConfig.cmake:
	$(call gtest,$(GTEST_WIN64),-DCMAKE_TOOLCHAIN_FILE=$(CURDIR)/cmake/mingw-x86_64.cmake)

$(WINTEST)/CMakeCache.txt: $(HOST)/CMakeCache.txt $(GTEST_WIN64)/lib/cmake/GTest/GTestConfig.cmake
	cmake --build $(HOST) --target qz_exportgen -j $(JOBS)
	cmake -S . -B $(WINTEST) $(GENERATOR) $(WARNINGS) -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	    -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-x86_64.cmake \
	    -DQZ_EXPORTGEN=$(CURDIR)/$(HOST)/qz_exportgen -DQZ_TESTS=ON \
	    -DGTest_DIR=$(CURDIR)/$(GTEST_WIN64)/lib/cmake/GTest \
	    "-DCMAKE_CROSSCOMPILING_EMULATOR=env;$(subst $(space),;,$(WINE_ENV));$(WINE64)"

$(WINE_PREFIX)/system.reg:
	mkdir -p $(WINE_PREFIX)
	$(WINE_ENV) $(WINE64) wineboot --init
	$(WINE_ENV) $(WINESERVER) -w

wintest: $(WINTEST)/CMakeCache.txt $(WINE_PREFIX)/system.reg
	cmake --build $(HOST) --target qz_exportgen -j $(JOBS)
	cmake --build $(WINTEST) -j $(JOBS)
	# A persistent server, and Wine's own services started now: started by
	# the first test, they would hold CTest's pipe to it open.
	$(WINE_ENV) $(WINESERVER) -p
	$(WINE_ENV) $(WINE64) cmd /c exit </dev/null >/dev/null 2>&1
	cd $(WINTEST) && $(WINE_ENV) ctest --output-on-failure -j $(JOBS); \
	    status=$$?; $(WINE_ENV) $(WINESERVER) -k; exit $$status

# The library and the whole suite built with -m32 on Linux: the data model
# of the 32-bit Windows DLL (32-bit pointers and long) on the platform layer
# the suite runs on. GoogleTest is built with the same flag.
GTEST_M32 := build/gtest-m32

$(GTEST_M32)/lib/cmake/GTest/GTestConfig.cmake:
	$(call gtest,$(GTEST_M32),-DCMAKE_TOOLCHAIN_FILE=$(CURDIR)/cmake/linux-m32.cmake)

$(TEST32)/CMakeCache.txt: $(GTEST_M32)/lib/cmake/GTest/GTestConfig.cmake
	cmake -S . -B $(TEST32) $(GENERATOR) $(WARNINGS) -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	    -DCMAKE_TOOLCHAIN_FILE=$(CURDIR)/cmake/linux-m32.cmake \
	    -DGTest_DIR=$(CURDIR)/$(GTEST_M32)/lib/cmake/GTest

test32: $(TEST32)/CMakeCache.txt
	cmake --build $(TEST32) -j $(JOBS)
	cd $(TEST32) && ctest --output-on-failure -j $(JOBS)

$(BENCH)/CMakeCache.txt:
	cmake -S . -B $(BENCH) $(GENERATOR) $(WARNINGS) -DCMAKE_BUILD_TYPE=Release -DQZ_BENCH=ON -DQZ_TESTS=OFF

bench: $(BENCH)/CMakeCache.txt
	cmake --build $(BENCH) -j $(JOBS)
	for b in $(BENCH)/bench/*_bench; do $$b; done

$(FUZZ)/CMakeCache.txt:
	CC=clang CXX=clang++ cmake -S . -B $(FUZZ) $(GENERATOR) $(WARNINGS) -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	    -DQZ_FUZZ=ON -DQZ_TESTS=OFF

fuzz: $(FUZZ)/CMakeCache.txt
	cmake --build $(FUZZ) -j $(JOBS)

# Every fuzz target for FUZZ_SECONDS from its seeds (fuzz/corpus/<target>/,
# copied so the grown corpus stays out of the tree). A finding fails the run.
FUZZ_SECONDS ?= 45
fuzz-run: fuzz
	@for t in $(FUZZ)/fuzz/*_fuzz; do \
	    name=$$(basename $$t); work=$$(mktemp -d); \
	    if [ -d fuzz/corpus/$$name ]; then cp -r fuzz/corpus/$$name/. $$work/; fi; \
	    echo "== $$name ($(FUZZ_SECONDS) s)"; \
	    $$t -max_total_time=$(FUZZ_SECONDS) -print_final_stats=1 \
	        -artifact_prefix=$(CURDIR)/$(FUZZ)/$$name- $$work > $$work.log 2>&1; \
	    status=$$?; grep -E 'stat::number_of_executed_units|ERROR|SUMMARY' $$work.log; \
	    if [ $$status -ne 0 ]; then tail -n 60 $$work.log; fi; \
	    rm -rf $$work $$work.log; \
	    if [ $$status -ne 0 ]; then echo "$$name found a fault"; exit 1; fi; \
	done

clean:
	rm -rf build
