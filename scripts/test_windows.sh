#!/usr/bin/env bash
# Cross-builds kbase for 64-bit Windows with MinGW-w64 and runs the whole test suite as Windows
# programs under Wine (headless). Installs the MinGW-w64 compiler, Wine and the GoogleTest sources
# when a fresh Debian 12 machine lacks them. The Linux build needs nothing of this.
set -euo pipefail
cd "$(dirname "$0")/.."

need=()
command -v x86_64-w64-mingw32-g++-posix >/dev/null || need+=(g++-mingw-w64-x86-64-posix)
command -v wine >/dev/null && command -v wineserver >/dev/null || need+=(wine wine64)  # wine: the commands
[ -f /usr/src/googletest/CMakeLists.txt ] || need+=(googletest)
command -v cmake >/dev/null || need+=(cmake)
command -v ninja >/dev/null || need+=(ninja-build)
[ -f /usr/include/CLI/CLI.hpp ] || need+=(libcli11-dev)
if [ ${#need[@]} -gt 0 ]; then
  echo "test_windows: installing ${need[*]}" >&2
  SUDO=""
  [ "$(id -u)" -eq 0 ] || SUDO="sudo"
  $SUDO apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends "${need[@]}" >/dev/null
fi

cmake --preset windows >/dev/null
cmake --build --preset windows

# One Wine server for the whole run: each test program then starts in a fraction of a second
# instead of seconds. The first start also makes the Wine prefix (~/.wine).
export WINEDEBUG=-all
export WINEDLLOVERRIDES="mscoree,mshtml="  # no offer to install Mono or Gecko into a new prefix
mkdir -p "${WINEPREFIX:-$HOME/.wine}"  # the server starts in the prefix, which a fresh machine lacks
wineserver -p || true  # 2: a server already runs for this prefix, which serves as well
trap 'wineserver -k || true' EXIT
wine cmd /c exit >/dev/null 2>&1 || true
ctest --preset windows -j "$(nproc)"
