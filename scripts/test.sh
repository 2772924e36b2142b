#!/usr/bin/env bash
# Installs what is missing, builds and runs every test headless.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh
scripts/build.sh "$@"
export QT_QPA_PLATFORM=offscreen
# Debian's Qt is not built for the sanitizers: these suppress only what happens inside Qt (no effect without
# a sanitizer). Undefined behaviour stops the test that meets it.
export TSAN_OPTIONS="suppressions=$PWD/tests/support/tsan-qt.supp ${TSAN_OPTIONS:-}"
export LSAN_OPTIONS="suppressions=$PWD/tests/support/lsan-qt.supp print_suppressions=0 ${LSAN_OPTIONS:-}"
export UBSAN_OPTIONS="print_stacktrace=1 halt_on_error=1 ${UBSAN_OPTIONS:-}"
ctest --test-dir "${QUILLMOOR_BUILD_DIR:-build}" --output-on-failure -j"$(nproc)"
