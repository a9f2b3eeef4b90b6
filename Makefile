# Two entry points for a fresh Debian machine:
#   make demo   builds the library and runs the tour of every family
#   make test   installs what is missing, builds, runs every test
# and `make install PREFIX=/opt/custom_zml` installs the library, its headers,
# zml-info, the pkg-config file and the CMake package under PREFIX.
BUILD ?= build
PREFIX ?= /usr/local
JOBS ?= $(shell nproc 2>/dev/null || echo 2)
CMAKE_FLAGS ?=
# Debian packages the build and the tests need. The peers (OpenBLAS, reference
# LAPACK) are only oracles for tests and benchmarks; the library never links them.
BUILD_PKGS = cmake g++ ninja-build make googletest libgtest-dev
TEST_PKGS = openmpi-bin libopenblas0-pthread

.PHONY: all deps deps-build demo test build install clean asan tsan test32

all: build

deps-build:
	@sh .ci/install-packages.sh $(BUILD_PKGS)

deps: deps-build
	@sh .ci/install-packages.sh $(TEST_PKGS)

$(BUILD)/build.ninja:
	cmake -S . -B $(BUILD) -G Ninja -DCMAKE_BUILD_TYPE=Release $(CMAKE_FLAGS)

build: $(BUILD)/build.ninja
	cmake --build $(BUILD) -j $(JOBS)

demo: deps-build build
	./$(BUILD)/tools/zml-info
	./$(BUILD)/examples/zml_tour

test: deps build
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS)

# Builds only what is installed, then installs it.
install: deps-build $(BUILD)/build.ninja
	cmake --build $(BUILD) -j $(JOBS) --target custom_zml zml-info
	cmake --install $(BUILD) --prefix $(PREFIX)

# Sanitizer jobs, each in its own build folder so they never mix objects with
# the normal build. -O2 -g keeps them fast enough while stacks still carry
# file:line. They build no benchmarks, which they would not run. Child-process
# tests re-run the same binary, so they inherit the sanitizer and these options. Reports go to files as well as failing the test:
# a child whose output a test only parses would otherwise hide one, so any
# report file fails the job. Leaks are checked at exit (LSan is on by default).
SAN_TYPE = RelWithDebInfo
SAN_CHECK = rc=$$?; if ls reports/* >/dev/null 2>&1; then cat reports/*; rc=1; fi; exit $$rc
asan: deps
	cmake -S . -B build-asan -G Ninja -DCMAKE_BUILD_TYPE=$(SAN_TYPE) -DZML_SANITIZE=address \
	  -DZML_BUILD_BENCH=OFF $(CMAKE_FLAGS)
	cmake --build build-asan -j $(JOBS)
	cd build-asan && rm -rf reports && mkdir reports && \
	  ASAN_OPTIONS=detect_leaks=1:detect_stack_use_after_return=1:log_path=$$PWD/reports/asan \
	  UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1:log_path=$$PWD/reports/ubsan \
	  ctest --output-on-failure -j $(JOBS); $(SAN_CHECK)

# libgomp is not instrumented, so GCC's TSan reports false races inside every
# OpenMP region. clang with LLVM's OpenMP runtime and its archer tool (in
# libomp-14-dev) tells TSan about the runtime's barriers and tasks instead;
# ignore_noninstrumented_modules keeps TSan off libomp's own accesses.
# Built without -Werror: clang warns about other things than GCC.
TSAN_PKGS = clang libomp-14-dev
tsan: deps
	@sh .ci/install-packages.sh $(TSAN_PKGS)
	cmake -S . -B build-tsan -G Ninja -DCMAKE_BUILD_TYPE=$(SAN_TYPE) -DZML_SANITIZE=thread \
	  -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ -DZML_WERROR=OFF \
	  -DZML_BUILD_BENCH=OFF $(CMAKE_FLAGS)
	cmake --build build-tsan -j $(JOBS)
	cd build-tsan && rm -rf reports && mkdir reports && \
	  OMP_TOOL_LIBRARIES=/usr/lib/llvm-14/lib/libarcher.so \
	  TSAN_OPTIONS="ignore_noninstrumented_modules=1 second_deadlock_stack=1 suppressions=$(CURDIR)/tests/tsan.supp log_path=$$PWD/reports/tsan" \
	  ctest --output-on-failure -j $(JOBS); $(SAN_CHECK)

# The 32-bit x86 build, its tests run under the user-mode emulator, which offers
# every code path up to AVX2 (0, 7, 8, 9) but not AVX-512. The tests run once at
# the code path detected there; the driver tests, which reach the kernels through
# the dispatch tables, run again with each code path forced. Left out: the large
# sweeps (1 to 4 emulated minutes each), whose code the smaller tests reach too.
I386_PKGS = g++-multilib lib32gomp1 qemu-user googletest
I386_PATHS = 0 7 8 9
I386_DRIVERS = ^(Cblas[A-Za-z]*|GemmRouting|GemmRank1Copy|GemmDriverQuick|GemvShapes|Trsv|Trsm|GemmStriped|GemmRegions|Scal)\.
I386_LEFT_OUT = BlockedLoopsAllTransposes|GemmShapes\.[DZ]gemm/|FirstGenerationRegionsEveryTeamSize
I386_SKIPS = awk '/: Skipped$$/{getline; print} / not run: /' Testing/Temporary/LastTest.log | sort | uniq -c
test32: deps
	@sh .ci/install-packages.sh $(I386_PKGS)
	cmake -S . -B build-i386 -G Ninja -DCMAKE_BUILD_TYPE=Release -DZML_BUILD_BENCH=OFF \
	  -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-linux-i386.cmake $(CMAKE_FLAGS)
	cmake --build build-i386 -j $(JOBS)
	cd build-i386 && qemu-i386 -cpu max tools/zml-info | grep '^code_path' && \
	  ctest --output-on-failure -j $(JOBS) -E '$(I386_DRIVERS)|$(I386_LEFT_OUT)' && $(I386_SKIPS)
	cd build-i386 && for cp in $(I386_PATHS); do export ZML_CODE_PATH_OVERRIDE=$$cp; \
	  qemu-i386 -cpu max tools/zml-info --tables | grep -v paths: | paste -sd' '; \
	  ctest --output-on-failure -j $(JOBS) -R '$(I386_DRIVERS)' \
	    -E '$(I386_LEFT_OUT)' || exit 1; $(I386_SKIPS); done

clean:
	rm -rf $(BUILD)
