#!/usr/bin/env bash
# Configures and builds into build/ (or $QUILLMOOR_BUILD_DIR); safe to run again.
set -euo pipefail
cd "$(dirname "$0")/.."
BUILD_DIR="${QUILLMOOR_BUILD_DIR:-build}"
cmake -S . -B "$BUILD_DIR" -G Ninja -DCMAKE_BUILD_TYPE="${QUILLMOOR_BUILD_TYPE:-RelWithDebInfo}" \
  -DQUILLMOOR_WERROR=ON "$@" >/dev/null
cmake --build "$BUILD_DIR" -j"$(nproc)"
