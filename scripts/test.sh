#!/usr/bin/env bash
# Builds the whole project with the sanitizer preset and runs every test.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/bootstrap.sh
cmake --preset dev >/dev/null
cmake --build --preset dev
ctest --preset dev -j "$(nproc)"
