#!/usr/bin/env bash
# Installs what is missing, builds and runs every test headless.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh
scripts/build.sh "$@"
export QT_QPA_PLATFORM=offscreen
ctest --test-dir "${QUILLMOOR_BUILD_DIR:-build}" --output-on-failure -j"$(nproc)"
