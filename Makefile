# dbfile: build, test and demo. Missing Debian packages are installed first.
BUILD    ?= build
JOBS     ?= $(shell nproc 2>/dev/null || echo 2)
PACKAGES := cmake g++ make pkg-config liblmdb-dev libpq-dev postgresql libgtest-dev libgmock-dev \
            libbenchmark-dev libsqlite3-dev sqlite3 libxml2-dev libinih-dev libcli11-dev clang \
            libclang-rt-14-dev
# Seconds each fuzzing target runs beyond its seeds: in make fuzz, and in
# make test's short pass.
FUZZ_SECONDS ?= 300
FUZZ_CHECK_SECONDS ?= 5
# Records of the dbutil benchmark (make bench).
DBUTIL_BENCH_RECORDS ?= 1000000

.PHONY: all deps release demo demo-server test test-build fuzz-build fuzz stress build-matrix bench install clean

all: release

deps:
	@missing=""; \
	for p in $(PACKAGES); do \
	  dpkg-query -W -f='$${Status}' $$p 2>/dev/null | grep -q "install ok installed" || missing="$$missing $$p"; \
	done; \
	if [ -n "$$missing" ]; then \
	  echo "Installing:$$missing"; \
	  if [ "$$(id -u)" -ne 0 ]; then SUDO=sudo; else SUDO=; fi; \
	  $$SUDO apt-get update -qq && $$SUDO env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq $$missing; \
	fi

release: deps
	cmake -S . -B $(BUILD)/release -DCMAKE_BUILD_TYPE=Release -DDBFILE_TESTS=OFF
	cmake --build $(BUILD)/release -j $(JOBS)

# The library's own walkthrough, in a fresh folder under the build tree; then
# its money again in another regional profile.
demo: release
	rm -rf $(BUILD)/demo
	$(BUILD)/release/examples/company_walkthrough $(BUILD)/demo
	@echo
	DBFILE_PROFILE=examples/euro_profile.ini \
	  $(BUILD)/release/examples/company_walkthrough --report $(BUILD)/demo

# The same walkthrough with its files in a throwaway PostgreSQL cluster
# (RECMAN_SERVER), started in a temporary folder and removed afterwards.
demo-server: release
	rm -rf $(BUILD)/demo-server
	sh scripts/pg-cluster.sh $(BUILD)/release/examples/company_walkthrough $(BUILD)/demo-server

# The test build runs with AddressSanitizer and UndefinedBehaviorSanitizer.
# Then every fuzzing target runs over its seeds and a few seconds more.
test: test-build
	cd $(BUILD)/test && ctest --output-on-failure -j $(JOBS)
	$(MAKE) --no-print-directory fuzz-build
	scripts/fuzz.sh $(BUILD)/fuzz $(FUZZ_CHECK_SECONDS)

# The test build alone: sanitizers, warnings as errors, fault injection.
test-build: deps
	cmake -S . -B $(BUILD)/test -DCMAKE_BUILD_TYPE=RelWithDebInfo -DDBFILE_SANITIZE=ON \
	      -DDBFILE_WERROR=ON -DDBFILE_FAULTS=ON
	cmake --build $(BUILD)/test -j $(JOBS)

# libFuzzer targets, built with clang, AddressSanitizer and UBSan.
fuzz-build: deps
	cmake -S . -B $(BUILD)/fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_C_COMPILER=clang \
	      -DCMAKE_CXX_COMPILER=clang++ -DDBFILE_FUZZ=ON -DDBFILE_WERROR=ON -DDBFILE_TESTS=OFF \
	      -DDBFILE_BENCH=OFF -DDBFILE_EXAMPLES=OFF
	cmake --build $(BUILD)/fuzz -j $(JOBS)

# Every target as long as asked: make fuzz FUZZ_SECONDS=3600 [FUZZ_TARGETS=...]
fuzz: fuzz-build
	scripts/fuzz.sh $(BUILD)/fuzz $(FUZZ_SECONDS) $(FUZZ_TARGETS)

# make test, again and again on a clean clone with both cores kept busy, then
# each concurrency test many times alone (STRESS_RUNS, STRESS_REPEAT).
stress: deps
	scripts/stress.sh

# Every build type with GCC and clang, with and without tests.
build-matrix: deps
	scripts/build-matrix.sh

bench: release
	$(BUILD)/release/bench/recman_bench --benchmark_counters_tabular=true
	$(BUILD)/release/bench/writers_bench --benchmark_counters_tabular=true
	$(BUILD)/release/bench/text_bench
	$(BUILD)/release/bench/txn_bench
	$(BUILD)/release/bench/maintenance_bench
	$(BUILD)/release/bench/dbfile_bench --benchmark_counters_tabular=true
	$(BUILD)/release/bench/checksum_bench
	$(BUILD)/release/bench/dbutil_bench $(DBUTIL_BENCH_RECORDS)

install: release
	cmake --install $(BUILD)/release --prefix $(or $(PREFIX),/usr/local)

clean:
	rm -rf $(BUILD)
