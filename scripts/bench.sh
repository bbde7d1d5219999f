#!/usr/bin/env bash
# Builds the benchmarks in release mode and runs them (all, or those named).
# Usage: scripts/bench.sh [bench_library bench_tags ...] [-- benchmark options]
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake -S . -B build-bench -G Ninja -DCMAKE_BUILD_TYPE=Release -DVELMORA_BUILD_TESTS=OFF \
      -DVELMORA_BUILD_BENCH=ON >/dev/null
cmake --build build-bench
names=()
while [ $# -gt 0 ] && [ "$1" != "--" ]; do names+=("$1"); shift; done
[ "${1:-}" = "--" ] && shift
if [ ${#names[@]} -eq 0 ]; then
  for b in build-bench/bin/bench_*; do names+=("$(basename "$b")"); done
fi
for name in "${names[@]}"; do
  echo "== $name"
  "build-bench/bin/$name" "$@"
done
