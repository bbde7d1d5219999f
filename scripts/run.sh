#!/usr/bin/env bash
# Installs what is missing, builds Velmora and starts it.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
export CCACHE_BASEDIR="$PWD"
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVELMORA_BUILD_TESTS=OFF >/dev/null
# Everything the program runs: velmora, velmora-cli and the helper tools under tools/.
cmake --build build
exec build/bin/velmora "$@"
