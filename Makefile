# Trekcom: the two commands a newcomer types, plus a few for developers.
#   make demo   installs what is missing, builds, runs the main job on the built-in simulated receiver
#   make test   installs what is missing, builds, runs every test (ctest)

BUILD ?= build
MAKEFLAGS += --no-print-directory
JOBS ?= 2
DEB_PACKAGES := cmake g++ make pkg-config libgtest-dev libgmock-dev libbenchmark-dev \
                libasio-dev libusb-1.0-0-dev libpugixml-dev libcli11-dev libfmt-dev \
                nlohmann-json3-dev gpsbabel g++-mingw-w64-x86-64 umockdev

.PHONY: all setup configure build demo test bench clean

all: build

# Installs the Debian packages that are missing (as root with apt-get, otherwise through sudo).
setup:
	@missing=$$(for p in $(DEB_PACKAGES); do \
	    dpkg-query -W -f='$${Status}\n' $$p 2>/dev/null | grep -q 'install ok installed' || echo $$p; done); \
	if [ -n "$$missing" ]; then \
	  echo "Installing: $$missing"; \
	  if [ "$$(id -u)" = 0 ]; then sudo=""; else sudo="sudo"; fi; \
	  $$sudo apt-get update -qq && DEBIAN_FRONTEND=noninteractive $$sudo apt-get install -y -qq $$missing; \
	fi

configure: setup
	@mkdir -p $(BUILD) && cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo > $(BUILD)/configure.log \
	  || (cat $(BUILD)/configure.log; exit 1)

build: configure
	@cmake --build $(BUILD) -j $(JOBS)

demo: build
	@sh tools/demo.sh $(BUILD)

test: build
	@cd $(BUILD) && ctest --output-on-failure -j $(JOBS)

bench: build
	@for b in $(BUILD)/bench/bench_*; do [ -x "$$b" ] && "$$b"; done

clean:
	rm -rf $(BUILD)
