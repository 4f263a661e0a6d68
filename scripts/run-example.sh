#!/usr/bin/env bash
# Builds the example plug-in against the installation in $1 and runs it against the
# gateway simulator of build/default, started on an ephemeral loopback port.
set -euo pipefail
# Paths are taken relative to where the script was called from.
prefix=$(realpath "$1"); shift
args=()
for a in "$@"; do args+=("$(realpath -m "$a")"); done
cd "$(dirname "$0")/.."
example_build="$prefix/example-build"
cmake -S examples/plugin -B "$example_build" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" > /dev/null
cmake --build "$example_build" > /dev/null

quiet="${QT_LOGGING_RULES:-*.debug=false;*.info=false}"
fifo=$(mktemp -u) && mkfifo "$fifo"
QT_LOGGING_RULES="$quiet" build/default/tools/gateway/vantor-gateway --listen 127.0.0.1:0 --rows "${VANTOR_ROWS:-20000}" > "$fifo" &
gateway=$!
trap 'kill $gateway 2>/dev/null; wait $gateway 2>/dev/null; rm -f "$fifo"' EXIT
read -r first < "$fifo"
cat "$fifo" > /dev/null &
echo "gateway ${first}"
QT_LOGGING_RULES="$quiet" VANTOR_GATEWAY="${first#listening on }" LD_LIBRARY_PATH="$prefix/lib" \
  "$example_build/example-plugin" ${args[@]+"${args[@]}"}
