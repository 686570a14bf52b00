# make run   - install what is missing, build, start the console
# make test  - install what is missing, build, run every test
# make demo  - the same as run, against the simulated box (virtual camera + tavrokvm-boxsim)
# make install [DESTDIR=...] [PREFIX=/usr] - build, then install (default prefix /usr/local)
# make package - build, then the Debian package tavrokvm_<version>_<arch>.deb in the build folder
BUILD_DIR ?= build
BUILD_TYPE ?= RelWithDebInfo
SANITIZE ?= OFF
CTEST_ARGS ?=
PREFIX ?=

.PHONY: all setup configure build run demo test bench install package clean

all: build

setup:
	scripts/setup.sh

configure: setup
	cmake -S . -B $(BUILD_DIR) -G Ninja -DCMAKE_BUILD_TYPE=$(BUILD_TYPE) -DTAVROKVM_SANITIZE=$(SANITIZE)

build: configure
	cmake --build $(BUILD_DIR)

run: build
	scripts/run-console.sh $(BUILD_DIR)

demo: build
	scripts/run-simulated.sh $(BUILD_DIR)

test: build
	scripts/run-tests.sh $(BUILD_DIR) $(CTEST_ARGS)

bench: build
	$(BUILD_DIR)/bin/tavrokvm-bench
	QT_QPA_PLATFORM=offscreen $(BUILD_DIR)/bin/tavrokvm-bench-frames
	QT_QPA_PLATFORM=offscreen $(BUILD_DIR)/bin/tavrokvm-bench-input
	$(BUILD_DIR)/bin/tavrokvm-bench-loop

install: build
	DESTDIR="$(DESTDIR)" cmake --install $(BUILD_DIR) $(if $(PREFIX),--prefix $(PREFIX))

package: build
	cmake --build $(BUILD_DIR) --target package

clean:
	rm -rf $(BUILD_DIR)
