# Two entry points for a fresh Debian machine:
#   make demo   builds the library and runs the tour of every family
#   make test   installs what is missing, builds, runs every test
BUILD ?= build
JOBS ?= $(shell nproc 2>/dev/null || echo 2)
CMAKE_FLAGS ?=
# Debian packages the build and the tests need. The peers (OpenBLAS, reference
# LAPACK) are only oracles for tests and benchmarks; the library never links them.
BUILD_PKGS = cmake g++ ninja-build make googletest libgtest-dev
TEST_PKGS = openmpi-bin libopenblas0-pthread

.PHONY: all deps deps-build demo test build clean

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

clean:
	rm -rf $(BUILD)
