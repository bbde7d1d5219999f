#!/usr/bin/env bash
# Installs what is missing, builds Velmora and starts it.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
export CCACHE_BASEDIR="$PWD"
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVELMORA_BUILD_TESTS=OFF >/dev/null
cmake --build build --target velmora velmora-cli
exec build/bin/velmora "$@"
