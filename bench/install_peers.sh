#!/usr/bin/env bash
# Installs the libraries the benchmarks compare against (not needed to build or test kbase).
set -euo pipefail
SUDO=""
[ "$(id -u)" -eq 0 ] || SUDO="sudo"
$SUDO apt-get update -qq
DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq \
  libbenchmark-dev libicu-dev libtirpc-dev libsqlite3-dev libboost-dev \
  libfccp-dev libcsv-dev python3-pandas libspdlog-dev gettext-base >/dev/null
