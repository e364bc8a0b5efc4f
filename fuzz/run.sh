#!/usr/bin/env bash
# Builds the libFuzzer targets with clang and runs each one for a bounded time, starting
# from the seed corpora kept in fuzz/corpus/. Exits non-zero when any target finds a
# crash, a sanitizer report, a hang or a broken property; the input that did it is left
# under the output directory and printed as base64.
#
# Usage: fuzz/run.sh [seconds per target [libFuzzer flags...]]   (default 60 s, no flags)
# Environment:
#   TOLKARO_FUZZ_BUILD_DIR  build directory (default: <repo>/build-fuzz)
#   TOLKARO_FUZZ_OUT        grown corpora, logs and crash inputs (default: <build>/fuzz-out)
set -euo pipefail

repo=$(cd "$(dirname "$0")/.." && pwd)
seconds=${1:-60}
shift $(( $# > 0 ? 1 : 0 ))
extra_flags=("$@") # after each target's own flags, so they override them
build=${TOLKARO_FUZZ_BUILD_DIR:-$repo/build-fuzz}
out=${TOLKARO_FUZZ_OUT:-$build/fuzz-out}

command -v clang++ >/dev/null || {
  echo "fuzz: clang++ not found; run scripts/install-deps.sh" >&2
  exit 2
}
if [ ! -f "$build/CMakeCache.txt" ]; then
  CC=clang CXX=clang++ cmake -S "$repo" -B "$build" -G Ninja -DTOLKARO_FUZZ=ON \
    -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
fi
cmake --build "$build" -j2 --target fuzz_parse fuzz_urlencode fuzz_services

status=0
# run_target <name> [extra libFuzzer flags...]
run_target() {
  local name=$1
  shift
  local dir="$out/$name"
  mkdir -p "$dir/corpus" "$dir/artifacts"
  echo "fuzz: $name for ${seconds} s"
  # New inputs go to the first directory; the seeds in the repository are only read.
  if "$build/fuzz/fuzz_$name" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
      -print_final_stats=1 -artifact_prefix="$dir/artifacts/" "$@" "${extra_flags[@]}" \
      "$dir/corpus" "$repo/fuzz/corpus/$name" >"$dir/log" 2>&1; then
    grep -E '^stat::(number_of_executed_units|average_exec_per_sec|peak_rss_mb)' "$dir/log" |
      sed "s/^/fuzz: $name /"
    echo "fuzz: $name $(grep -Eo 'cov: [0-9]+ ft: [0-9]+ corp: [0-9]+' "$dir/log" | tail -n 1)"
  else
    status=1
    echo "fuzz: $name FAILED; log: $dir/log" >&2
    grep -E -A 8 'property broken|ERROR: |SUMMARY: ' "$dir/log" | head -n 60 >&2 || true
    grep -E '^(Base64|artifact_prefix)' "$dir/log" >&2 || true
  fi
}

run_target parse -dict="$repo/fuzz/parse.dict" -max_len=16384
run_target urlencode -max_len=4096
run_target services -max_len=16384

exit $status
