#!/usr/bin/env bash
# Builds the libFuzzer targets (clang 14, address and undefined-behaviour sanitizers) and runs each one for
# SECONDS, seeded from tests/fixtures and fuzz/seeds. Exits non-zero at the first target that finds a
# crash, a time-out or a leak; the input that did it is kept as $BUILD_DIR/findings/<target>-*.
#
#   tools/fuzz.sh [SECONDS] [TARGET...]      (default: 60 seconds each, every target)
#
# QUILLMOOR_FUZZ_BUILD_DIR picks the build folder (build-fuzz); QUILLMOOR_FUZZ_OPTIONS adds libFuzzer
# options, for example "-runs=10000000" to stop after that many inputs instead of after SECONDS.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds="${1:-60}"
shift || true
BUILD_DIR="${QUILLMOOR_FUZZ_BUILD_DIR:-build-fuzz}"

scripts/deps.sh fuzz
cmake -S . -B "$BUILD_DIR" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_COMPILER=clang++-14 \
  -DQUILLMOOR_FUZZ=ON -DQUILLMOOR_WERROR=ON >/dev/null
cmake --build "$BUILD_DIR" -j"$(nproc)"

targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  for source in fuzz/fuzz_*.cpp; do targets+=("$(basename "$source" .cpp)"); done
fi

# Seeds: the recorded answers line by line for the event reader, whole files for everything else.
seed() {
  local target="$1" dir="$BUILD_DIR/seeds/$1"
  rm -rf "$dir"
  mkdir -p "$dir"
  case "$target" in
    fuzz_stream_event)
      local n=0
      for file in tests/fixtures/sse/*; do
        while IFS= read -r line || [ -n "$line" ]; do
          n=$((n + 1))
          printf '%s' "${line%$'\r'}" >"$dir/line-$n"
        done <"$file"
      done ;;
    fuzz_sse_lines) cp tests/fixtures/sse/* "$dir/" ;;
    fuzz_embeddings) cp tests/fixtures/embeddings/* "$dir/" ;;
    fuzz_xlsx) cp tests/fixtures/xlsx/* "$dir/" ;;
    fuzz_pdf) cp tests/fixtures/pdf/*.pdf "$dir/" ;;
    fuzz_markdown) cp tests/fixtures/SOURCES.md fuzz/seeds/markdown/* "$dir/" ;;
    fuzz_chunker) cp tests/fixtures/SOURCES.md tests/fixtures/sse/* fuzz/seeds/chunker/* "$dir/" ;;
    fuzz_text) cp tests/fixtures/SOURCES.md tests/fixtures/sse/* tests/fixtures/embeddings/* "$dir/" ;;
    fuzz_bookmarks) cp fuzz/seeds/bookmarks/* "$dir/" ;;
  esac
}

export ASAN_OPTIONS="${ASAN_OPTIONS:-}:detect_leaks=1"
export LSAN_OPTIONS="suppressions=$PWD/tests/support/lsan-qt.supp:print_suppressions=0 ${LSAN_OPTIONS:-}"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1 ${UBSAN_OPTIONS:-}"
mkdir -p "$BUILD_DIR/findings"
for target in "${targets[@]}"; do
  seed "$target"
  corpus="$BUILD_DIR/corpus/$target"
  mkdir -p "$corpus"
  echo "== $target: ${seconds}s"
  # shellcheck disable=SC2086 # the options are meant to split
  # Workbooks and PDF documents are files of some size; every other input is a line, a body or a text.
  max_len=4096
  case "$target" in fuzz_xlsx) max_len=65536 ;; fuzz_pdf) max_len=131072 ;; esac
  "$BUILD_DIR/fuzz/$target" "$corpus" "$BUILD_DIR/seeds/$target" -max_total_time="$seconds" -timeout=10 \
    -max_len="$max_len" \
    -rss_limit_mb=4096 -print_final_stats=1 -artifact_prefix="$BUILD_DIR/findings/$target-" \
    ${QUILLMOOR_FUZZ_OPTIONS:-} 2>"$BUILD_DIR/$target.log" || {
    tail -n 60 "$BUILD_DIR/$target.log"
    echo "== $target found a problem; its input is in $BUILD_DIR/findings/"
    exit 1
  }
  grep -E '^stat::number_of_executed_units|^Done [0-9]+ runs' "$BUILD_DIR/$target.log" || true
done
