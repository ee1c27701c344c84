# make        build build/Tolm
# make test   build the release and the sanitizer builds and run every test in both
# make demo   serve the example site under lighttpd on 127.0.0.1
# make bench  build and run the benchmarks

SHELL := /bin/bash
JOBS ?= 2

.PHONY: all build asan test demo bench deps clean

all: build

# Installs the build and test tools on a fresh Debian machine.
deps:
	@missing=""; \
	for t in g++:g++ cmake:cmake ninja:ninja-build python3:python3 curl:curl lighttpd:lighttpd; do \
	  command -v $${t%%:*} >/dev/null 2>&1 || missing="$$missing $${t#*:}"; \
	done; \
	[ -f /usr/include/gtest/gtest.h ] || missing="$$missing libgtest-dev"; \
	[ -f /usr/include/benchmark/benchmark.h ] || missing="$$missing libbenchmark-dev"; \
	if [ -n "$$missing" ]; then \
	  echo "installing:$$missing"; \
	  apt-get update -qq && DEBIAN_FRONTEND=noninteractive apt-get install -y -qq $$missing; \
	fi

build/build.ninja:
	cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTOLM_BENCH=ON

build-asan/build.ninja:
	cmake -S . -B build-asan -G Ninja -DCMAKE_BUILD_TYPE=Debug -DTOLM_SANITIZE=ON

build: build/build.ninja
	cmake --build build -j $(JOBS)

asan: build-asan/build.ninja
	cmake --build build-asan -j $(JOBS)

test: deps
	$(MAKE) build asan
	cd build && ctest -j $(JOBS) --output-on-failure
	cd build-asan && ASAN_OPTIONS=detect_leaks=0 UBSAN_OPTIONS=print_stacktrace=1 \
	  ctest -j $(JOBS) --output-on-failure

demo: deps build
	python3 examples/serve.py build/Tolm

bench: deps build
	for b in build/bench/bench_*; do $$b --benchmark_min_time=0.2; done

clean:
	rm -rf build build-asan
