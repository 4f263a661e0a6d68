#!/usr/bin/env bash
# Sets up (when needed), builds the default preset and runs the whole test suite.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake --preset default
cmake --build --preset default
ctest --preset default
