# Front door: `make demo`, `make test` and `make test-asan` install what is
# missing, configure, build and run.
BUILD      ?= build
BUILD_ASAN ?= build-asan
JOBS       ?= $(shell nproc)

# Debian packages the build needs (tests and benchmarks included).
PACKAGES := cmake g++ make libopencv-core-dev libopencv-imgproc-dev android-liblog-dev \
            libgtest-dev libbenchmark-dev \
            libopencv-imgcodecs-dev nlohmann-json3-dev libcli11-dev

SUDO := $(shell [ "$$(id -u)" = 0 ] || echo sudo)

.PHONY: deps build demo test test-asan clean

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

# The cutout tool on the bundled photo, with a box around the cup.
DEMO_OUT ?= out/demo
demo: deps
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo
	cmake --build $(BUILD) -j$(JOBS) --target cutout
	$(BUILD)/tools/cutout data/samples/coffee.png --box 72,14,482,392 -o $(DEMO_OUT)
	@echo "Open $(DEMO_OUT)/preview.png (the outline) and $(DEMO_OUT)/cutout.png (the cut-out)."

test: build
	cd $(BUILD) && ctest --output-on-failure -j$(JOBS)

test-asan: deps
	cmake -S . -B $(BUILD_ASAN) -DCMAKE_BUILD_TYPE=Debug -DSEG_SANITIZE=ON -DSEG_BUILD_BENCHMARKS=OFF
	cmake --build $(BUILD_ASAN) -j$(JOBS)
	cd $(BUILD_ASAN) && ctest --output-on-failure -j$(JOBS)

clean:
	rm -rf $(BUILD) $(BUILD_ASAN)
