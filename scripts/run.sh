#!/usr/bin/env bash
# Sets up, builds and runs the main job: the example plug-in, built against an installed
# copy of the library, against the gateway simulator on an ephemeral loopback port.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake --preset default
cmake --build --preset default
prefix=build/default/example-install
cmake --install build/default --prefix "$prefix" > /dev/null
bash scripts/run-example.sh "$prefix" "$@"
