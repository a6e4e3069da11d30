# Front door: `make demo`, `make test`, `make playground` and `make test-asan`
# install what is missing, configure, build and run.
# Build folders, one per kind of build; `make clean` removes them all.
BUILD        ?= build
BUILD_ASAN   ?= build-asan
BUILD_FUZZ   ?= build-fuzz
BUILD_TSAN   ?= build-tsan
BUILD_STRESS ?= build-stress
BUILD_ARM64  ?= build-arm64
BUILD_ARMHF  ?= build-armhf
BUILD_UCHAR  ?= build-uchar
BUILD_DIRS   := $(BUILD) $(BUILD_ASAN) $(BUILD_FUZZ) $(BUILD_TSAN) $(BUILD_STRESS) $(BUILD_ARM64) \
                $(BUILD_ARMHF) $(BUILD_UCHAR)
JOBS         ?= $(shell nproc)

# Debian packages the build needs (tests and benchmarks included; the JDK,
# JUnit and the NDK's bitmap header for the Java binding).
PACKAGES := cmake g++ make libopencv-core-dev libopencv-imgproc-dev android-liblog-dev \
            libgtest-dev libbenchmark-dev \
            libopencv-imgcodecs-dev nlohmann-json3-dev libcli11-dev libcpp-httplib-dev pkg-config \
            default-jdk-headless junit5 android-platform-frameworks-native-headers

SUDO := $(shell [ "$$(id -u)" = 0 ] || echo sudo)

# $(call seg_install,PACKAGES): installs the ones that are missing.
define seg_install
	@missing=$$(for p in $(1); do \
	    dpkg-query -W -f='$${Status}\n' $$p 2>/dev/null | grep -q 'install ok installed' || echo $$p; \
	  done); \
	if [ -n "$$missing" ]; then \
	  echo "Installing:" $$missing; \
	  $(SUDO) apt-get update -qq && \
	  DEBIAN_FRONTEND=noninteractive $(SUDO) apt-get install -y -qq --no-install-recommends $$missing; \
	fi
endef

.PHONY: deps build demo test test-asan clean

deps:
	$(call seg_install,$(PACKAGES))

build: deps
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo
	cmake --build $(BUILD) -j$(JOBS)

# The cutout tool on the bundled photo, with a box around the cup.
DEMO_OUT ?= out/demo
demo: deps
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo
	cmake --build $(BUILD) -j$(JOBS) --target cutout
	$(BUILD)/tools/cutout/cutout data/samples/coffee.png --box 72,14,482,392 -o $(DEMO_OUT)
	@echo "Open $(DEMO_OUT)/preview.png (the outline) and $(DEMO_OUT)/cutout.png (the cut-out)."

test: build
	cd $(BUILD) && ctest --output-on-failure -j$(JOBS)

test-asan: deps
	cmake -S . -B $(BUILD_ASAN) -DCMAKE_BUILD_TYPE=Debug -DSEG_SANITIZE=ON -DSEG_BUILD_BENCHMARKS=OFF
	cmake --build $(BUILD_ASAN) -j$(JOBS)
	cd $(BUILD_ASAN) && ctest --output-on-failure -j$(JOBS)

clean:
	rm -rf $(BUILD_DIRS)

# ---- hardening ----------------------------------------------------------------
# make fuzz [FUZZ_SECONDS=60]  libFuzzer (clang, ASan + UBSan) on the session calls
# make test-tsan               the threaded and cancel tests under ThreadSanitizer
# make soak                    300 edits on a 2 MP photo: leaks and resident memory
# make bigphoto                one edit on 12 and 48 MP photos: peak memory
# make test-arm64              cross-built suite under qemu-aarch64
# make test-armhf              cross-built suite for 32-bit arm under qemu-arm (armhf
#                              libraries unpacked under ~/.cache, not installed)
# make test-unsigned-char      the suite built with -funsigned-char, as on arm
FUZZ_SECONDS  ?= 60
FUZZ_PACKAGES := clang libclang-rt-14-dev
ARM64_PACKAGES := g++-aarch64-linux-gnu qemu-user libopencv-core-dev:arm64 \
                  libopencv-imgproc-dev:arm64 android-liblog-dev:arm64 libgtest-dev:arm64
ARMHF_PACKAGES := g++-arm-linux-gnueabihf qemu-user
ARMHF_LIBRARIES := libopencv-core-dev libopencv-imgproc-dev android-liblog-dev libgtest-dev
# Outside the tree: an installable build may not point into its own folders.
ARMHF_SYSROOT ?= $(HOME)/.cache/segmentationcore/armhf-sysroot
NO_EXTRAS     := -DSEG_BUILD_BENCHMARKS=OFF -DSEG_BUILD_TOOLS=OFF

.PHONY: fuzz test-tsan soak bigphoto test-arm64 test-armhf test-unsigned-char


# New inputs go to $(BUILD_FUZZ)/corpus, crashes to $(BUILD_FUZZ)/artifacts;
# the kept corpus and the regression inputs are read, never written.
fuzz: deps
	$(call seg_install,$(FUZZ_PACKAGES))
	cmake -S . -B $(BUILD_FUZZ) -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	  -DSEG_SANITIZE=ON -DSEG_BUILD_FUZZ=ON -DSEG_BUILD_TESTS=OFF $(NO_EXTRAS)
	cmake --build $(BUILD_FUZZ) -j$(JOBS) --target fuzz_session
	mkdir -p $(BUILD_FUZZ)/corpus $(BUILD_FUZZ)/artifacts
	$(BUILD_FUZZ)/fuzz/fuzz_session -max_total_time=$(FUZZ_SECONDS) -timeout=30 -rss_limit_mb=4096 \
	  -print_final_stats=1 -artifact_prefix=$(BUILD_FUZZ)/artifacts/ \
	  $(BUILD_FUZZ)/corpus fuzz/corpus fuzz/regressions

test-tsan: deps
	cmake -S . -B $(BUILD_TSAN) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DSEG_TSAN=ON $(NO_EXTRAS)
	cmake --build $(BUILD_TSAN) -j$(JOBS)
	cd $(BUILD_TSAN) && TSAN_OPTIONS=halt_on_error=1 ctest --output-on-failure -j$(JOBS) \
	  -R 'Cancel|Threads|WorkerPool|Striped|Parallel|Refine|BandGraph'

$(BUILD_STRESS)/stress/long_session: deps
	cmake -S . -B $(BUILD_STRESS) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DSEG_BUILD_STRESS=ON \
	  -DSEG_BUILD_TESTS=OFF $(NO_EXTRAS)
	cmake --build $(BUILD_STRESS) -j$(JOBS)

# Leaks: LeakSanitizer needs no instrumentation, so it is preloaded into the
# plain build. Resident memory: glibc raises its mmap threshold after the
# first big free and from then on keeps big blocks on its heap (+20% by
# edit 300, flat after edit 50); with the threshold fixed they go back to the
# system when freed, and what stays resident is what the library holds.
soak: $(BUILD_STRESS)/stress/long_session
	LD_PRELOAD=$$(gcc -print-file-name=liblsan.so) $(BUILD_STRESS)/stress/long_session 300
	MALLOC_MMAP_THRESHOLD_=131072 $(BUILD_STRESS)/stress/long_session 300 5

bigphoto: $(BUILD_STRESS)/stress/long_session
	$(BUILD_STRESS)/stress/big_photo 12
	$(BUILD_STRESS)/stress/big_photo 48

test-arm64: deps
	@dpkg --print-foreign-architectures | grep -qx arm64 || $(SUDO) dpkg --add-architecture arm64
	$(call seg_install,$(ARM64_PACKAGES))
	cmake -S . -B $(BUILD_ARM64) -DCMAKE_TOOLCHAIN_FILE=$(CURDIR)/cmake/aarch64-linux-gnu.cmake \
	  -DCMAKE_BUILD_TYPE=RelWithDebInfo $(NO_EXTRAS)
	cmake --build $(BUILD_ARM64) -j$(JOBS)
	cd $(BUILD_ARM64) && ctest --output-on-failure -j$(JOBS) --timeout 600

test-armhf: deps
	$(call seg_install,$(ARMHF_PACKAGES))
	cmake/armhf-sysroot.sh $(ARMHF_SYSROOT) $(ARMHF_LIBRARIES)
	cmake -S . -B $(BUILD_ARMHF) -DCMAKE_TOOLCHAIN_FILE=$(CURDIR)/cmake/arm-linux-gnueabihf.cmake \
	  -DSEG_ARMHF_ROOT=$(ARMHF_SYSROOT)/root -DCMAKE_BUILD_TYPE=RelWithDebInfo $(NO_EXTRAS)
	cmake --build $(BUILD_ARMHF) -j$(JOBS)
	cd $(BUILD_ARMHF) && ctest --output-on-failure -j$(JOBS) --timeout 600

test-unsigned-char: deps
	cmake -S . -B $(BUILD_UCHAR) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_FLAGS=-funsigned-char $(NO_EXTRAS)
	cmake --build $(BUILD_UCHAR) -j$(JOBS)
	cd $(BUILD_UCHAR) && ctest --output-on-failure -j$(JOBS)

# ---- benchmarks ----------------------------------------------------------------
# make bench   one box edit beside cv::grabCut on the sample photo at 0.24, 1.2 and
#              12 MP (x_ours: its CPU time over ours); the stages of an edit at 0.24,
#              1.2, 12 and 48 MP with peak memory; the max-flow on graphs from real
#              edits beside OpenCV's GCGraph (x_gcgraph); the path search; a playground
#              worker's memory at 12 and 48 MP beside the library's (x_library) and
#              its answer to a cancel.
.PHONY: bench
bench: deps
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DSEG_BUILD_BENCHMARKS=ON
	cmake --build $(BUILD) -j$(JOBS) --target bench_peer bench_edit bench_maxflow bench_path bench_playground
	$(BUILD)/bench/bench_peer
	$(BUILD)/bench/bench_edit
	$(BUILD)/bench/bench_maxflow
	$(BUILD)/bench/bench_path
	$(BUILD)/tools/playground/bench_playground

# make bench-java  the same 12 MP box edit on the sample photo through the Java API
#                  and through the C calls, in one process: CPU time, the binding's
#                  overhead, and what the Java API allocates on the Java heap per edit.
.PHONY: bench-java
bench-java: deps
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DSEG_BUILD_BENCHMARKS=ON
	cmake --build $(BUILD) -j$(JOBS) --target segmentationcore_bench segmentationcore_bench_jni segmentationcore_jni
	java -Djava.library.path=$(BUILD)/java -cp $(BUILD)/java/segmentationcore.jar:$(BUILD)/java/segmentationcore_bench.jar \
	  org.segmentationcore.BindingBenchmark data/samples/coffee.png 72 14 482 392

# ---- playground ----------------------------------------------------------------
# make playground [PORT=8080]  the page on http://127.0.0.1:PORT/ (Ctrl+C stops it)
# make test-browser            the page in headless Chromium, with a mouse and with a
#                              finger; screenshots in $(BUILD)/playground-shots
PORT         ?= 8080
BROWSER_TEST := $(BUILD)/browser-test
PLAYWRIGHT   := playwright-core@1.65.1
.PHONY: playground test-browser

playground: deps
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo
	cmake --build $(BUILD) -j$(JOBS) --target playground
	$(BUILD)/tools/playground/playground --port $(PORT)

# Debian's Chromium, driven by playwright-core from npm (which must not fetch
# a browser of its own).
test-browser: deps
	$(call seg_install,chromium $(if $(shell command -v npm),,nodejs npm))
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo
	cmake --build $(BUILD) -j$(JOBS) --target playground cutout
	@[ -d $(BROWSER_TEST)/node_modules/playwright-core ] || \
	  PLAYWRIGHT_SKIP_BROWSER_DOWNLOAD=1 npm install --prefix $(BROWSER_TEST) --no-save --no-package-lock \
	    --no-audit --no-fund $(PLAYWRIGHT)
	PLAYGROUND=$(BUILD)/tools/playground/playground CUTOUT=$(BUILD)/tools/cutout/cutout \
	  SHOTS=$(BUILD)/playground-shots NODE_PATH=$(BROWSER_TEST)/node_modules \
	  node --test tools/playground/test/
