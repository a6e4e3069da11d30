# Front door: `make test` and `make test-asan` install what is missing,
# configure, build and run the suite.
BUILD      ?= build
BUILD_ASAN ?= build-asan
JOBS       ?= $(shell nproc)

# Debian packages the build needs (tests and benchmarks included).
PACKAGES := cmake g++ make libopencv-core-dev libopencv-imgproc-dev android-liblog-dev \
            libgtest-dev libbenchmark-dev

SUDO := $(shell [ "$$(id -u)" = 0 ] || echo sudo)

.PHONY: deps build test test-asan clean

deps:
	@missing=$$(for p in $(PACKAGES); do \
	    dpkg-query -W -f='$${Status}\n' $$p 2>/dev/null | grep -q 'install ok installed' || echo $$p; \
	  done); \
	if [ -n "$$missing" ]; then \
	  echo "Installing:" $$missing; \
	  $(SUDO) apt-get update -qq && \
	  DEBIAN_FRONTEND=noninteractive $(SUDO) apt-get install -y -qq --no-install-recommends $$missing; \
	fi

build: deps
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo
	cmake --build $(BUILD) -j$(JOBS)

test: build
	cd $(BUILD) && ctest --output-on-failure -j$(JOBS)

test-asan: deps
	cmake -S . -B $(BUILD_ASAN) -DCMAKE_BUILD_TYPE=Debug -DSEG_SANITIZE=ON -DSEG_BUILD_BENCHMARKS=OFF
	cmake --build $(BUILD_ASAN) -j$(JOBS)
	cd $(BUILD_ASAN) && ctest --output-on-failure -j$(JOBS)

clean:
	rm -rf $(BUILD) $(BUILD_ASAN)
