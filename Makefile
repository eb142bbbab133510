# Trekcom: the two commands a newcomer types, plus a few for developers.
#   make demo   installs what is missing, builds, runs the main job on the built-in simulated receiver
#   make test   installs what is missing, builds, runs every test (ctest)
#   make test-asan  the same suite in a second tree under AddressSanitizer and
#               UndefinedBehaviorSanitizer (build-asan), the Python package's
#               pytest suite included; CI runs both
#   make coverage  the suite in an instrumented tree (build-coverage), then the
#               line and branch coverage of src/ (gcovr)
#   make fuzz   builds the libFuzzer targets with clang (build-fuzz), runs each FUZZ_SECONDS

BUILD ?= build
ASAN_BUILD ?= build-asan
COVERAGE_BUILD ?= build-coverage
FUZZ_BUILD ?= build-fuzz
FUZZ_SECONDS ?= 60
FUZZ_TARGETS := receive framing decoders identify nmea usb translate replay gpx product_table dispatch screen
MAKEFLAGS += --no-print-directory
JOBS ?= 2
# The Python the package is built and tested for: Debian's.
PYTHON ?= /usr/bin/python3
# Warnings become errors only when asked (CI: make test WERROR=ON).
WERROR ?= OFF
# What the demo builds and runs needs only these: the library, the simulated
# receiver and the tool (libpng: its screenshots).
DEMO_PACKAGES := cmake g++ make pkg-config libasio-dev libusb-1.0-0-dev libpugixml-dev libcli11-dev \
                 nlohmann-json3-dev libpng-dev
# The tests add the Python package's needs (pybind11, Python's headers,
# setuptools and wheel for pip, venv, pytest, mypy; the package is built for
# Debian's /usr/bin/python3, whatever python3 comes first on PATH),
# GoogleTest, Google Benchmark, gpsbabel and python3-gps (gpsd's client
# library; interoperability),
# xmllint (libxml2-utils: written TCX is well formed), the MinGW compiler (the
# Windows driver's compile check) and umockdev (an emulated USB bus); the
# benchmarks, GNU time (peak resident sizes).
DEB_PACKAGES := $(DEMO_PACKAGES) libgtest-dev libgmock-dev libbenchmark-dev libfmt-dev gpsbabel python3-gps libxml2-utils \
                g++-mingw-w64-x86-64 umockdev time \
                pybind11-dev python3-pybind11 python3-dev python3-setuptools python3-wheel python3-pip python3-venv \
                python3-pytest python3-mypy
FUZZ_PACKAGES := clang-14 libclang-rt-14-dev
COVERAGE_PACKAGES := gcovr

.PHONY: all setup setup-demo configure build demo test test-asan coverage fuzz bench package clean

all: build

# Installs the Debian packages that are missing (as root with apt-get, otherwise through sudo).
setup:
	@missing=$$(for p in $(DEB_PACKAGES); do \
	    dpkg-query -W -f='$${Status}\n' $$p 2>/dev/null | grep -q 'install ok installed' || echo $$p; done); \
	if [ -n "$$missing" ]; then \
	  echo "Installing: $$missing"; \
	  if [ "$$(id -u)" = 0 ]; then sudo=""; else sudo="sudo"; fi; \
	  $$sudo apt-get update -qq && DEBIAN_FRONTEND=noninteractive $$sudo apt-get install -y -qq --no-install-recommends $$missing; \
	fi

setup-demo:
	@$(MAKE) setup DEB_PACKAGES="$(DEMO_PACKAGES)"

# $(call configure,TESTS): configures $(BUILD) with or without the tests and benchmarks.
configure = mkdir -p $(BUILD) && cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTREKCOM_WERROR=$(WERROR) \
	  -DBUILD_TESTING=$(1) -DTREKCOM_BUILD_BENCH=$(1) -DTREKCOM_PYTHON=$(1) -DPython_EXECUTABLE=$(PYTHON) \
	  > $(BUILD)/configure.log || (cat $(BUILD)/configure.log; exit 1)

configure: setup
	@$(call configure,ON)

build: configure
	@cmake --build $(BUILD) -j $(JOBS)

# Only what the demo runs: the library, the simulated receiver and the tool.
demo: setup-demo
	@$(call configure,OFF)
	@cmake --build $(BUILD) -j $(JOBS) --target trekcom-cli trekcom-sim
	@sh tools/demo.sh $(BUILD)

test: build
	@cd $(BUILD) && ctest --output-on-failure -j $(JOBS)

# The whole suite again under ASan and UBSan: any report fails the test that
# made it (the sanitizers abort; leaks are reported at exit).
test-asan: setup
	@mkdir -p $(ASAN_BUILD) && cmake -S . -B $(ASAN_BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTREKCOM_SANITIZE=ON -DTREKCOM_WERROR=$(WERROR) \
	  -DTREKCOM_BUILD_BENCH=OFF -DTREKCOM_PYTHON=ON -DPython_EXECUTABLE=$(PYTHON) \
	  > $(ASAN_BUILD)/configure.log || (cat $(ASAN_BUILD)/configure.log; exit 1)
	@cmake --build $(ASAN_BUILD) -j $(JOBS)
	@cd $(ASAN_BUILD) && ASAN_OPTIONS=detect_leaks=1 \
	  UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 ctest --output-on-failure -j $(JOBS)

# Unoptimised so that lines and branches map to the source. Every object is
# built afresh, so that notes left by sources since moved or removed cannot
# count (or break the report), and the counters are this run's alone. The
# figures count src/ only: the simulator and the tools are not what is measured.
# The packaging check is left out: a consumer built the ordinary way cannot
# link an instrumented library.
coverage:
	@$(MAKE) setup DEB_PACKAGES="$(DEB_PACKAGES) $(COVERAGE_PACKAGES)"
	@mkdir -p $(COVERAGE_BUILD) && cmake -S . -B $(COVERAGE_BUILD) -DCMAKE_BUILD_TYPE=Debug -DTREKCOM_WERROR=$(WERROR) \
	  -DCMAKE_CXX_FLAGS="--coverage -O0" -DCMAKE_EXE_LINKER_FLAGS=--coverage -DCMAKE_SHARED_LINKER_FLAGS=--coverage \
	  -DTREKCOM_BUILD_BENCH=OFF > $(COVERAGE_BUILD)/configure.log || (cat $(COVERAGE_BUILD)/configure.log; exit 1)
	@find $(COVERAGE_BUILD) \( -name '*.gcno' -o -name '*.gcda' \) -delete
	@cmake --build $(COVERAGE_BUILD) --target clean
	@cmake --build $(COVERAGE_BUILD) -j $(JOBS)
	@find $(COVERAGE_BUILD) -name '*.gcda' -delete
	@cd $(COVERAGE_BUILD) && ctest --output-on-failure -j $(JOBS) -E '^Packaging\.'; rc=$$?; cd $(CURDIR) && \
	  gcovr --root . --filter 'src/' --object-directory $(COVERAGE_BUILD) $(COVERAGE_BUILD) \
	  --exclude-unreachable-branches --exclude-throw-branches --print-summary -o $(COVERAGE_BUILD)/coverage.txt && \
	  echo "(per file: $(COVERAGE_BUILD)/coverage.txt)" && exit $$rc

# Each fuzz target for FUZZ_SECONDS (make fuzz FUZZ_SECONDS=600); a crash or a
# sanitizer report fails it, and the input is left in $(FUZZ_BUILD)/fuzz/findings/<target>/.
fuzz:
	@$(MAKE) setup DEB_PACKAGES="$(DEB_PACKAGES) $(FUZZ_PACKAGES)"
	@mkdir -p $(FUZZ_BUILD) && CXX=clang++-14 cmake -S . -B $(FUZZ_BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	  -DBUILD_FUZZ_TESTS=ON -DBUILD_TESTING=OFF -DTREKCOM_BUILD_SIM=OFF -DTREKCOM_BUILD_TOOLS=OFF \
	  -DTREKCOM_BUILD_BENCH=OFF -DFUZZ_SECONDS=$(FUZZ_SECONDS) > $(FUZZ_BUILD)/configure.log \
	  || (cat $(FUZZ_BUILD)/configure.log; exit 1)
	@cmake --build $(FUZZ_BUILD) -j $(JOBS) --target $(addprefix fuzz_,$(FUZZ_TARGETS))
	@for t in $(FUZZ_TARGETS); do \
	  echo "== fuzz_$$t: $(FUZZ_SECONDS) s"; \
	  cmake --build $(FUZZ_BUILD) --target run_fuzz_$$t || exit 1; \
	done

# A .deb of the library, its headers, both tools and the udev rule, from a
# Release tree (build-release/trekcom-*.deb); dpkg-shlibdeps fills in its dependencies.
package:
	@$(MAKE) setup DEB_PACKAGES="$(DEMO_PACKAGES) dpkg-dev"
	@mkdir -p build-release && cmake -S . -B build-release -DCMAKE_BUILD_TYPE=Release -DTREKCOM_WERROR=$(WERROR) \
	  -DBUILD_TESTING=OFF -DTREKCOM_BUILD_BENCH=OFF > build-release/configure.log \
	  || (cat build-release/configure.log; exit 1)
	@cmake --build build-release -j $(JOBS)
	@cd build-release && cpack -G DEB

bench: build
	@bench/run.sh $(BUILD)

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(COVERAGE_BUILD) $(FUZZ_BUILD) build-release
