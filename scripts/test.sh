#!/usr/bin/env bash
# Builds the whole project with the sanitizer preset and runs every test; then cross-builds it for
# Windows and runs every test again as Windows programs under Wine (scripts/test_windows.sh).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/bootstrap.sh
cmake --preset dev >/dev/null
cmake --build --preset dev
ctest --preset dev -j "$(nproc)"
bash scripts/test_windows.sh
