#!/usr/bin/env bash
# Sets up, builds and runs the main job: the example plug-in, built against an installed
# copy of the library, against the gateway simulator on an ephemeral loopback port.
set -euo pipefail
# The folder for the exported files is taken relative to where the script was called from.
args=()
for a in "$@"; do args+=("$(realpath -m "$a")"); done
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake --preset default
cmake --build --preset default
prefix=build/default/example-install
cmake --install build/default --prefix "$prefix" > /dev/null
bash scripts/run-example.sh "$prefix" ${args[@]+"${args[@]}"}
