# A thin front: what to type.  How it is built is in CMakeLists.txt and CMakePresets.json.

JOBS := $(shell nproc)
SECONDS ?= 60

export CMAKE_BUILD_PARALLEL_LEVEL = $(JOBS)
.DELETE_ON_ERROR:
.PHONY: help setup build run install uninstall deb deb-test test page-test sim sim-sweep sim-defects soak coverage mutants bench fuzz check format clean

help:
	@echo 'make run      install what is missing, build, and run a Linux guest on real QEMU (KEEP=1: stay)'
	@echo 'make test     install what is missing, build with sanitizers, run all tests'
	@echo 'make page-test  what is shipped: the page of Cockpit in a browser, with real guests'
	@echo 'make install  build what is shipped, and install it below PREFIX=$(PREFIX); make uninstall takes it away'
	@echo 'make deb      build the Debian packages, into build/deb'
	@echo 'make deb-test install them on a machine of their own: a guest, an upgrade, a reboot, the removal'
	@echo 'make quick    build for daily work, and run the tests that need no machine'
	@echo 'make sim      play what may go wrong on a machine that is made up, for SECONDS=$(SECONDS); SEED=1: that one, and all of it'
	@echo 'make sim-sweep, sim-defects: each call fails or is the last; known defects are put back, for SECONDS each'
	@echo 'make soak     everything that goes wrong, at random, for SECONDS=$(SECONDS); SEED=1'
	@echo 'make coverage which lines and branches of the product the tests do not run'
	@echo 'make mutants  put COUNT=20 small faults into the product, one by one, and show those that no test sees; SEED=1'
	@echo 'make build    build for daily work, into build/dev'
	@echo 'make bench    build with optimization and run all benchmarks, results in build/release/bench'
	@echo 'make fuzz     run each fuzzer for SECONDS=$(SECONDS)'
	@echo 'make check    format, include directions, what nobody calls, headers, clang build, clang-tidy'
	@echo 'make format   format the sources in place'
	@echo 'make setup    install the packages needed (Debian 12 and 13)'
	@echo 'make clean    remove build/'

setup:
	@./setup

# The wildcard: a folder's first CMakeLists.txt must bring the folder into the build.
build/%/build.ninja: CMakeLists.txt CMakePresets.json $(wildcard */CMakeLists.txt) | setup
	@cmake --preset $* >/dev/null

build: build/dev/build.ninja
	@cmake --build --preset dev
	@tools/slowest.py build/dev

run: build/release/build.ninja
	@cmake --build --preset release --target vmagentd vmctl vmagent_shim
	@KEEP=$(KEEP) tools/run build/release

# PREFIX, and DESTDIR for a package's root.
PREFIX ?= /usr/local
install: build/release/build.ninja
	@cmake --build --preset release --target shipped
	@cockpit/fetch || echo 'make install: the page in Cockpit goes without xterm.js and noVNC'
	@cmake --install build/release --strip --prefix $(PREFIX) >/dev/null
	@[ -n "$(DESTDIR)" ] || ! command -v systemd-sysusers >/dev/null || systemd-sysusers
	@echo 'make install: installed below $(DESTDIR)$(PREFIX)'

# What the last "make install" here put below PREFIX, and nothing else.
uninstall:
	@packaging/uninstall build/release $(PREFIX)
	@echo 'make uninstall: nothing of it is left below $(DESTDIR)$(PREFIX)'

# Their dependencies are not those of "make test", so they have words of their own for setup.
deb:
	@./setup deb
	@cockpit/fetch || echo 'make deb: the page in Cockpit goes without xterm.js and noVNC'
	@packaging/deb.py build/deb
deb-test:
	@./setup deb-test
	@packaging/deb-test build

# More at once than there are processors: most of the time the long ones wait for guests. What is
# shipped, without sanitizers, does its job in "make run". PRESET=dev: in half of the time.
PRESET ?= asan
test: build/$(PRESET)/build.ninja
	@cmake --build --preset $(PRESET)
	@tools/slowest.py build/$(PRESET)
	@tools/run_tests.py $(PRESET) $$((2 * $(JOBS)))
	@echo 'make test: all tests passed ($(PRESET))'

# ONLY="Console Form": these alone. Pictures of each view are left in build/release/page.
page-test: build/release/build.ninja
	@./setup page
	@cmake --build --preset release --target vmagentd vmctl vmagent_shim
	@tests/page/run build/release $(ONLY)
	@echo 'make page-test: all tests passed'

# What is looked at after each change: no root, no QEMU, no sanitizers.
quick: build/dev/build.ninja
	@cmake --build --preset dev --target quick_tests
	@tools/slowest.py build/dev
	@tools/quick.py build/dev

# What ends badly is told as a short story, in a line for sim/stories. SEED=7: that one, and all of it;
# SEED=7 SECONDS=60: from that on.
sim: build/release/build.ninja
	@cmake --build --preset release --target vmagent_sim
	@build/release/sim/vmagent-sim --stories sim/stories $(if $(SEED),--seed $(SEED)) \
	  $(if $(and $(SEED),$(findstring file,$(origin SECONDS))),--show,--seconds $(SECONDS))

# Every call of the daemon and of a shim fails, or is its last, one at a time.
sim-sweep: build/release/build.ninja
	@cmake --build --preset release --target vmagent_sim
	@build/release/sim/vmagent-sim --sweep 1 --keep-going

# Known defects are put back, one at a time: does it find them? For SECONDS of one processor.
sim-defects: | setup
	@sim/defects $(SECONDS)

# With the sanitizers' build. Each run prints its seed, and what it does.
soak: build/asan/build.ninja
	@cmake --build --preset asan --target fault_test
	@VMAGENT_SOAK_SECONDS=$(SECONDS) VMAGENT_SOAK_SEED=$(or $(SEED),1) VMAGENT_REQUIRE_ALL=1 \
	  build/asan/tests/system/fault_test --gtest_filter='Soak.*'

# Fails below 95 % of the lines or 85 % of the branches; "Missing" lists the lines that were not run.
# Why those that stay are not: docs/testing.md. Branches that only an exception takes do not count.
# Of the system tests those count that need no QEMU: where a shim or a daemon is killed, or a box is
# shut, nothing is written down of what was run.
COUNTED := Vm netlink guest statedb model host shim ctl
coverage: build/coverage/build.ninja
	@cmake --build --preset coverage
	@find build/coverage -name '*.gcda' -delete
	@tools/quick.py build/coverage
	@ctest --test-dir build/coverage --output-on-failure --no-tests=error -j $(JOBS) \
	  -R '^(Processes|KernelDevice|MonitorTrouble|TwoCards|ModuleHost|Daemon)' \
	  >build/coverage/system.log || { cat build/coverage/system.log; exit 1; }
	@gcovr --root . $(COUNTED:%=--filter %/) --exclude '.*(Test|Bench|Fuzz)[.]cpp' \
	  --exclude '.*/fakes/' --exclude-throw-branches --exclude-unreachable-branches \
	  --txt - --print-summary --fail-under-line 95 --fail-under-branch 85 build/coverage

# As root; it gives way to all else. ONLY="netlink Vm/Monitor": into these folders.
mutants: | setup
	@nice -n 19 tools/mutants.py --seed $(or $(SEED),1) --count $(or $(COUNT),20) \
	  $(if $(ONLY),--only $(ONLY))

# Built before the first is run, so that no compiler runs beside a measurement. What cannot be
# installed is left out, and said so.
bench: build/release/build.ninja
	-@./setup bench
	@cmake --build --preset release --target benchmarks vmagentd vmctl vmagent_shim qmp_baseline
	@[ -e build/guests/linux.iso ] || tests/guests/make-linux-guest build/guests/linux.iso
	@cmake --build --preset release --target bench
	@bench/daemon build/release
	@bench/system build/release >/dev/null
	@if [ -x bench/report ]; then bench/report; fi

# What a fuzzer finds is kept in build/fuzz; the seeds in fuzz/corpus stay as they are.
fuzz: build/fuzz/build.ninja
	@cmake --build --preset fuzz
	@found=; \
	for fuzzer in build/fuzz/fuzzers/*; do \
	  [ -x "$$fuzzer" ] || continue; \
	  found=1; name=$${fuzzer##*/}; seeds=; words=; \
	  if [ -d "fuzz/corpus/$$name" ]; then seeds="fuzz/corpus/$$name"; fi; \
	  if [ -f "fuzz/$$name.dict" ]; then words="-dict=fuzz/$$name.dict"; fi; \
	  mkdir -p "build/fuzz/corpus/$$name"; \
	  echo "make fuzz: $$name for $(SECONDS) s"; \
	  ASAN_OPTIONS=allow_addr2line=1 "$$fuzzer" -max_total_time=$(SECONDS) $(if $(SEED),-seed=$(SEED)) -print_final_stats=1 \
	    -artifact_prefix="build/fuzz/$$name-" $$words "build/fuzz/corpus/$$name" $$seeds || exit 1; \
	done; \
	if [ -z "$$found" ]; then echo 'make fuzz: there is no fuzzer yet'; fi

check: setup
	@tools/check

format:
	@git ls-files -co --exclude-standard '*.h' '*.cpp' | while read -r f; do \
	  if [ -f "$$f" ]; then echo "$$f"; fi; done | xargs -r clang-format -i

clean:
	rm -rf build
