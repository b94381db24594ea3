# Everything a developer types. Each target installs what it lacks.
#
#   make run [MUSIC=folder]   build, then play the folder, or the demo album
#   make help                 the other targets

PRESET ?= release
BUILD  := build/$(PRESET)
MUSIC  ?=
ARGS   ?=
PREFIX ?= $(HOME)/.local
# Files that `make lint` gives to clang-tidy: those changed against BASE, or all with LINT=all.
BASE   ?= origin/main
LINT   ?= changed
# Further settings of a sanitizer build, -DNAME=VALUE.
CONFIGURE ?=

.DEFAULT_GOAL := help
.PHONY: help build run install test bench analyse lint format asan tsan fuzz deps clean

help: ## this list
	@awk -F ':.*## ' '/^[a-z]+:.*## /{printf "  make %-8s %s\n", $$1, $$2}' $(MAKEFILE_LIST)

build: ## the program, at build/release/velorin
	@tools/install-deps.sh build
	@[ -f $(BUILD)/build.ninja ] || tools/configure.sh $(PRESET) -DVELORIN_TESTS=OFF
	@cmake --build $(BUILD) --target velorin

run: build ## play MUSIC=folder, or the demo album
	@tools/install-deps.sh run
	@$(if $(MUSIC),true,cmake --build $(BUILD) --target demo_album)
	@$(BUILD)/velorin play $(ARGS) "$(if $(MUSIC),$(MUSIC),$(BUILD)/demo-album)"

install: build ## into PREFIX, ~/.local unless told otherwise
	@cmake --install $(BUILD) --prefix "$(PREFIX)"

test: ## build everything and run the test suite
	@tools/install-deps.sh build test
	@tools/configure.sh release -DVELORIN_TESTS=ON
	@cmake --build build/release
	@ctest --preset release

asan: ## the suite under the address and undefined-behaviour sanitizers
	@tools/install-deps.sh build test
	@tools/configure.sh asan $(CONFIGURE)
	@cmake --build build/asan
	@ctest --preset asan

tsan: ## the threaded tests under the thread sanitizer
	@tools/install-deps.sh build test
	@tools/configure.sh tsan $(CONFIGURE)
	@cmake --build build/tsan --target threaded_tests
	@ctest --preset tsan -L threads

bench: ## each figure beside its target, also in bench.json (FILTER=text for some)
	@tools/install-deps.sh build bench
	@tools/configure.sh bench
	@cmake --build build/bench --target velorin_bench
	@build/bench/velorin_bench --json bench.json

analyse: ## format check and the clang build with thread-safety analysis
	@tools/install-deps.sh build test lint
	@tools/sources.sh | xargs clang-format --dry-run -Werror
	@tools/configure.sh clang
	@cmake --build build/clang

lint: analyse ## analyse, then clang-tidy (LINT=all for every file)
	@tools/tidy.sh $(LINT) $(BASE)

format: ## rewrite the sources in the house style
	@tools/install-deps.sh lint
	@tools/sources.sh | xargs clang-format -i

fuzz: ## every fuzz target for FUZZ_SECONDS (30)
	@tools/install-deps.sh build lint
	@tools/configure.sh fuzz
	@cmake --build build/fuzz
	@tools/fuzz.sh build/fuzz $(or $(FUZZ_SECONDS),30)

deps: ## all packages for all of the above
	@tools/install-deps.sh build run test bench lint

clean: ## remove every build
	@rm -rf build bench.json
