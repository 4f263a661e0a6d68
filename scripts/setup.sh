#!/usr/bin/env bash
# Installs every Debian package the project needs to build, test, fuzz and benchmark.
# Idempotent and non-interactive: packages already present are left alone.
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkg-config git ccache
  qtbase5-dev qtbase5-dev-tools libqt5sql5-sqlite
  libxlsxwriter-dev libzip-dev libexpat1-dev zlib1g-dev
  clang libclang-rt-14-dev
  python3 python3-openpyxl
  locales  # the tests make a locale with a decimal comma from its data
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "ok installed" || missing+=("$p")
done

if [ ${#missing[@]} -eq 0 ]; then
  echo "setup: all packages present"
  exit 0
fi

sudo_cmd=()
[ "$(id -u)" -ne 0 ] && sudo_cmd=(sudo)
export DEBIAN_FRONTEND=noninteractive
"${sudo_cmd[@]}" apt-get update -qq
"${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
echo "setup: installed ${missing[*]}"
