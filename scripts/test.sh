#!/usr/bin/env bash
# Installs what is missing, builds and runs every test headless.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh
scripts/build.sh "$@"
export QT_QPA_PLATFORM=offscreen
# Debian's Qt is not built for ThreadSanitizer; these suppress what it cannot see inside Qt (no effect otherwise).
export TSAN_OPTIONS="suppressions=$PWD/tests/support/tsan-qt.supp ${TSAN_OPTIONS:-}"
ctest --test-dir "${QUILLMOOR_BUILD_DIR:-build}" --output-on-failure -j"$(nproc)"
