#!/usr/bin/env bash
# Installs the build into a fresh prefix (with a space in its name, as "Program Files"
# has) and checks that pkg-config finds the headers and libraries of that prefix and that
# the installed programs find the libraries installed beside them.
set -euo pipefail
cmake="$1"
build="$2"
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
prefix="$tmp/install prefix"
"$cmake" --install "$build" --prefix "$prefix" > /dev/null
pcdir=$(dirname "$(find "$prefix" -name vantorutils.pc)")
# pkg-config escapes the spaces of paths for the shell.
query() { local v; v=$(PKG_CONFIG_PATH="$pcdir" pkg-config "$@" vantorutils); printf '%s' "${v//\\ / }"; }
includedir=$(query --variable=includedir)
libdir=$(query --variable=libdir)
for f in "$includedir/VantorUtils.h" "$includedir/LmPresenterClass.h" "$libdir/libvantorutils.so" "$libdir/libvantorplatform.so"; do
  if [ ! -e "$f" ]; then
    echo "vantorutils.pc points at $f, which the installation in $prefix does not have"
    exit 1
  fi
done
for program in "$prefix"/bin/*; do
  [ -x "$program" ] || continue
  missing=$(env -u LD_LIBRARY_PATH ldd "$program" | grep 'not found' || true)
  if [ -n "$missing" ]; then
    echo "the installed $(basename "$program") does not find its libraries:"
    echo "$missing"
    exit 1
  fi
done
echo "the installation in $prefix finds its own headers and libraries"
