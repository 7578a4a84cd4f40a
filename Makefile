# The commands of README.md and CONTRIBUTING.md; the build itself is CMake's.

JOBS ?= $(shell nproc)
SAMPLE = build/release/examples/sample.ntfs
PREFIX ?= /usr/local
# Seconds that each fuzz target runs.
FUZZ_SECONDS ?= 60
# Damaged media of a sweep, and what they follow from.
COUNT ?= 100000
SEED ?= 1
# How long a soak takes; with OLD, a build folder whose output is to be repeated.
HOURS ?= 1

MAKEFLAGS += --no-print-directory
.DEFAULT_GOAL := build
.PHONY: build run test asan lab bench fuzz lint format install package package-test \
        reproducible static soak sweep clean

# Builds one preset; its output goes to standard error, so that standard output holds
# only what the program or the tests print.
define build_preset
	@{ cmake --preset $(1) && cmake --build --preset $(1) -j $(JOBS) $(2); } >&2
endef

build:
	@tools/install_deps build >&2
	$(call build_preset,release,--target veskit recyclebin sample_volume)

# Runs both programs on the sample; with ARGS, veskit on what these name.
run: build
ifdef ARGS
	@build/release/src/veskit $(ARGS)
else
	@build/release/src/veskit -image $(SAMPLE)
	@build/release/src/recyclebin list $(SAMPLE) --carve
endif

test:
	@tools/install_deps build test >&2
	$(call build_preset,release)
	@ctest --preset release --no-tests=error -j $(JOBS)

asan:
	@tools/install_deps build test >&2
	$(call build_preset,asan)
	@ctest --preset asan --no-tests=error -j $(JOBS)

# BENCH_SIZE=large also makes volumes with mkntfs and the ntfs-3g driver, which takes some
# minutes and 45 GB, and an $$MFT of ten million records.
bench:
	@tools/install_deps build bench volumes >&2
	$(call build_preset,bench)
	@bench/run build/bench
ifeq ($(BENCH_SIZE),large)
	@bench/volumes build/bench
endif
	@bench/carve build/bench
	@bench/cold build/bench 5 $(if $(filter large,$(BENCH_SIZE)),10000000,1000000)

# Makes the laboratory's cases, and proves what their bytes still show. A case whose decoys
# aren't there fails.
lab:
	@tools/install_deps build lab >&2
	$(call build_preset,release,--target veskit recyclebin make_lab)
	@rm -rf build/lab
	@build/release/lab/make_lab build/lab
	@printf '%s\0' build/lab/*/* | xargs -0 -P $(JOBS) -n 8 lab/prove

fuzz:
	@tools/install_deps build fuzz >&2
	$(call build_preset,fuzz)
	@fuzz/run build/fuzz $(FUZZ_SECONDS)

lint:
	@tools/install_deps build test bench lint >&2
	@tools/check_layers
	@tools/check_format
	@cmake --preset asan >&2
	@cmake --preset bench >&2
	@tools/lint build/asan
	@tools/lint build/bench bench/*.cpp
	@if git diff --quiet HEAD; then git rev-parse HEAD >.ci/linted; fi

format:
	@tools/install_deps lint >&2
	@clang-format -i $$(git ls-files '*.cpp' '*.h')

install: build
	@cmake --install build/release --prefix $(PREFIX)

# The Debian packages, in build/package, and what lintian says about them.
package:
	@tools/install_deps build package >&2
	@tools/make_package build/package

# Installs them in a bare system, runs what a new user would, and removes them (root).
package-test:
	@tools/install_deps package-test >&2
	@tools/package_test build/package

# Makes the packages in two folders of different names, and compares their bytes.
reproducible:
	@tools/install_deps build package >&2
	@CCACHE_DISABLE=1 tools/make_package build/package
	@CCACHE_DISABLE=1 tools/make_package build/package-again/in-another-folder
	@for one in build/package/*.deb; do \
	    cmp $$one build/package-again/in-another-folder/$${one##*/} || exit 1; done
	@echo "the same bytes"

# veskit as one file that needs no other, for machines that nothing may be installed on.
static:
	@tools/install_deps build >&2
	$(call build_preset,static,--target veskit)
	@strip -o build/veskit build/static/src/veskit
	@readelf -d build/veskit | { ! grep NEEDED; }
	@echo build/veskit

# Fuzzing, sweeps and comparisons in turn; build/soak/report.md says what came of them.
soak:
	@tools/install_deps build test lab fuzz >&2
	$(call build_preset,release,--target veskit recyclebin make_lab)
	$(call build_preset,asan,--target damage_sweep)
	$(call build_preset,fuzz)
	@tools/soak --release build/release --sweep build/asan --fuzz build/fuzz \
	    $(if $(OLD),--old $(OLD)) --jobs $(JOBS) $(HOURS)

# Both programs over damaged media, under the sanitizers. Findings are kept in build/sweep.
sweep:
	@tools/install_deps build test lab >&2
	$(call build_preset,release,--target make_lab)
	$(call build_preset,asan,--target damage_sweep)
	@stress/media build/release/lab/make_lab build/sweep/media > build/sweep.list
	@build/asan/stress/damage_sweep --count $(COUNT) --seed $(SEED) --jobs $(JOBS) \
	    --keep build/sweep/findings $$(cat build/sweep.list)

clean:
	@rm -rf build
