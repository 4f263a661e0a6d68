#!/usr/bin/env bash
# Sets up, builds and runs the main job.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake --preset default
cmake --build --preset default
prefix=build/default/example-install
cmake --install build/default --prefix "$prefix" > /dev/null
cmake -S examples/plugin -B build/example -G Ninja -DCMAKE_PREFIX_PATH="$PWD/$prefix" > /dev/null
cmake --build build/example
LD_LIBRARY_PATH="$PWD/$prefix/lib" build/example/example-plugin "$@"
