#!/usr/bin/env bash
# Installs what is missing, builds Velmora with AddressSanitizer and
# UndefinedBehaviorSanitizer, and runs every test (the benchmarks are built, not run,
# so they keep up with the code). Any sanitizer report fails the run.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
build=build-test
# Compiler cache entries are shared between clones of the tree.
export CCACHE_BASEDIR="$PWD" CCACHE_NOHASHDIR=1
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DVELMORA_SANITIZE=ON \
      -DVELMORA_BUILD_TESTS=ON -DVELMORA_BUILD_BENCH=ON -DVELMORA_WERROR=ON >/dev/null
cmake --build "$build" -j "$(nproc)"
export ASAN_OPTIONS="halt_on_error=1:abort_on_error=0:detect_leaks=1:detect_stack_use_after_return=0"
export UBSAN_OPTIONS="halt_on_error=1:print_stacktrace=1"
export LSAN_OPTIONS="suppressions=$PWD/scripts/lsan.supp:print_suppressions=0"
export QT_QPA_PLATFORM=offscreen
(cd "$build" && ctest --output-on-failure -j "$(nproc)" --timeout 600)
# The Debian package, unpacked into a scratch root and run from there.
scripts/package.sh --check
