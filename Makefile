# The project's commands. Each sets up what it needs: packages, a build tree, the build.
#
#   make run      build and start the recorder on media and an input of its own (INPUT=url for yours)
#   make test     build and run every test
#   make demo     record and play a live stream end to end and check what is seen
#   make bench    measure against what a user would pick instead
#   make soak     what takes hours: ten minutes of recording, the frames seen at every speed, the store killed
#   make coverage which lines and branches of the engine and the controller their tests run
#   make bigendian  the ProRes codec's portable path on an emulated big-endian machine, and on one of 32 bits
#   make install  programs and the clips that stand in for a lost input (PREFIX=/usr/local)
#   make packages install what is missing

PRESET ?= release
JOBS ?= $(shell nproc)
BUILD = build/$(PRESET)
export PATH := $(PATH):/usr/sbin:/sbin
# Lets ccache know objects that came from precompiled headers.
export CCACHE_SLOPPINESS = pch_defines,time_macros

.PHONY: all run test demo bench soak coverage bigendian install packages build clean

all: build

packages:
	@scripts/packages.sh

build: packages
	@cmake --preset $(PRESET) >/dev/null
	@cmake --build $(BUILD) -j $(JOBS) --target programs

run: build
	@scripts/run.sh $(BUILD)/bin

test: packages
	@scripts/test.sh

demo: build
	@scripts/isolated.sh python3 scripts/demo.py $(BUILD)/bin

bench:
	@scripts/packages.sh bench
	@$(MAKE) --no-print-directory build
	@scripts/isolated.sh python3 bench/bench.py $(BUILD)/bin

install: build
	@cmake --install $(BUILD) --prefix $(or $(PREFIX),/usr/local)

# What takes long: several hours.
soak: build
	@scripts/packages.sh soak
	@cmake --build $(BUILD) -j $(JOBS) --target frame_law tst_engine_random store_torture clip_torture \
		tst_media_listing fuzz_clip fuzz_clipreader fuzz_medium fuzz_prores
	@scripts/isolated.sh python3 tests/system/soak.py $(BUILD)/bin

coverage: packages
	@scripts/packages.sh coverage
	@scripts/coverage.sh

bigendian: packages
	@scripts/packages.sh bigendian
	@cmake --preset $(PRESET) >/dev/null
	@cmake --build $(BUILD) --target bigendian bits32

clean:
	rm -rf build out
