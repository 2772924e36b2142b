#!/usr/bin/env bash
# Installs what is missing, builds and starts Quillmoor.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh
scripts/build.sh
exec "${QUILLMOOR_BUILD_DIR:-build}/src/App/quillmoor" "$@"
