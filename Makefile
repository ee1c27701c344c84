# make        build build/Tolm
# make test   build the release and the sanitizer builds and run every test in both
# make demo   serve the example site under lighttpd on 127.0.0.1
#             (make demo MODE=fastcgi: Tolm as a FastCGI server behind nginx)
# make bench  build and run the benchmarks
# make fuzz   build the fuzz targets and run each FUZZ_SECONDS (default 60)
# make install, make uninstall   the binary, tolm(1) and the documentation
#             under $(DESTDIR)$(PREFIX) (PREFIX defaults to /usr/local)
#
# Each target first installs, with apt-get, the Debian packages it needs and
# the machine lacks.

SHELL := /bin/bash
JOBS ?= 2
BUILD ?= build
ASAN ?= build-asan
FUZZ ?= build-fuzz
FUZZ_SECONDS ?= 60
SUDO := $(shell [ "$$(id -u)" = 0 ] || echo sudo)

# Packages as "WHAT:PACKAGE": WHAT is a command, or a file when it begins with "/".
BUILD_PKGS := g++:g++ cmake:cmake ninja:ninja-build \
              /usr/include/gtest/gtest.h:libgtest-dev \
              /usr/include/benchmark/benchmark.h:libbenchmark-dev \
              /usr/include/sqlite3.h:libsqlite3-dev \
              /usr/include/postgresql/libpq-fe.h:libpq-dev \
              clang++-14:clang-14 \
              /usr/lib/llvm-14/lib/clang/14.0.6/lib/linux/libclang_rt.fuzzer-x86_64.a:libclang-rt-14-dev
RUN_PKGS := python3:python3 /usr/sbin/lighttpd:lighttpd /usr/lib/postgresql:postgresql \
            /usr/sbin/nginx:nginx
# The web servers whose set-up files in docs/servers are tested, and the
# browser of the example site's tests.
TEST_PKGS := /usr/sbin/apache2:apache2 /usr/sbin/nginx:nginx /usr/sbin/fcgiwrap:fcgiwrap \
             chromium:chromium chromedriver:chromium-driver
BENCH_PKGS := wrk:wrk hyperfine:hyperfine
MODE ?= cgi

PREFIX ?= /usr/local
BINDIR := $(DESTDIR)$(PREFIX)/bin
MANDIR := $(DESTDIR)$(PREFIX)/share/man/man1
DOCDIR := $(DESTDIR)$(PREFIX)/share/doc/tolm

.PHONY: all build asan fuzz-build fuzz test demo bench deps build-deps run-deps test-deps \
        bench-deps clean \
        install uninstall

all: build

define install
	@missing=""; \
	for t in $(1); do \
	  what=$${t%%:*}; \
	  if [[ $$what == /* ]]; then [ -e "$$what" ]; else command -v "$$what" >/dev/null; fi \
	    || missing="$$missing $${t#*:}"; \
	done; \
	if [ -n "$$missing" ]; then \
	  echo "installing:$$missing"; \
	  $(SUDO) apt-get update -qq && \
	  $(SUDO) env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq $$missing; \
	fi
endef

build-deps:
	$(call install,$(BUILD_PKGS))

run-deps:
	$(call install,$(RUN_PKGS))

bench-deps:
	$(call install,$(BENCH_PKGS))

test-deps:
	$(call install,$(TEST_PKGS))

deps: build-deps run-deps test-deps

$(BUILD)/build.ninja: | build-deps
	cmake -S . -B $(BUILD) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTOLM_BENCH=ON

$(ASAN)/build.ninja: | build-deps
	cmake -S . -B $(ASAN) -G Ninja -DCMAKE_BUILD_TYPE=Debug -DTOLM_SANITIZE=ON

build: $(BUILD)/build.ninja
	cmake --build $(BUILD) -j $(JOBS)

asan: $(ASAN)/build.ninja
	cmake --build $(ASAN) -j $(JOBS)

$(FUZZ)/build.ninja: | build-deps
	CXX=clang++-14 cmake -S . -B $(FUZZ) -G Ninja -DCMAKE_BUILD_TYPE=Debug -DTOLM_FUZZ=ON

fuzz-build: $(FUZZ)/build.ninja
	cmake --build $(FUZZ) -j $(JOBS)

# Each target keeps what it found in $(FUZZ)/corpus/NAME; failing inputs go
# to $(FUZZ)/corpus/artifacts.
fuzz: fuzz-build
	@fail=0; for d in fuzz/*/; do n=$$(basename $$d); \
	  python3 fuzz/run.py $(FUZZ)/fuzz/fuzz_$$n $$d $(FUZZ_SECONDS) --corpus $(FUZZ)/corpus/$$n || fail=1; \
	done; exit $$fail

test: deps
	$(MAKE) build asan
	cd $(BUILD) && ctest -j $(JOBS) --output-on-failure
	cd $(ASAN) && ASAN_OPTIONS=detect_leaks=0 UBSAN_OPTIONS=print_stacktrace=1 \
	  ctest -j $(JOBS) --output-on-failure
	$(MAKE) fuzz-build
	cd $(FUZZ) && ctest -j $(JOBS) --output-on-failure

demo: run-deps build
	python3 examples/serve.py $(if $(filter fastcgi,$(MODE)),--fastcgi) $(BUILD)/Tolm

bench: build run-deps bench-deps
	for b in $(BUILD)/bench/bench_*; do $$b --benchmark_min_time=0.2; done
	python3 bench/session_run.py $(BUILD)/Tolm
	python3 bench/sql_walk.py $(BUILD)/Tolm
	python3 bench/pg_request.py $(BUILD)/Tolm $(BUILD)/bench/pg_one
	python3 bench/web.py $(BUILD)/Tolm
	python3 bench/compare.py $(BUILD)/Tolm

install: build
	install -d $(BINDIR) $(MANDIR) $(DOCDIR)/servers
	install -m 755 $(BUILD)/Tolm $(BINDIR)/Tolm
	install -m 755 $(BUILD)/tolm-pg $(BINDIR)/tolm-pg
	sed 's|/usr/local/share/|$(PREFIX)/share/|' docs/tolm.1 > $(MANDIR)/tolm.1
	chmod 644 $(MANDIR)/tolm.1
	install -m 644 docs/*.md $(DOCDIR)
	install -m 644 docs/servers/* $(DOCDIR)/servers

uninstall:
	rm -f $(BINDIR)/Tolm $(BINDIR)/tolm-pg $(MANDIR)/tolm.1
	rm -rf $(DOCDIR)

clean:
	rm -rf $(BUILD) $(ASAN) $(FUZZ)
