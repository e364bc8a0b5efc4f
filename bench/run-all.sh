#!/usr/bin/env bash
# Builds Tolkaro and runs every benchmark, each in its own test desktop where it needs one,
# printing what each measured. Nothing here passes or fails on a number.
# Usage: bench/run-all.sh [--quick]
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="${BUILD_DIR:-$root/build}"
quick=""
[ "${1:-}" = "--quick" ] && quick=1

"$root/scripts/build.sh" -DTOLKARO_BUILD_TESTS=ON >/dev/null
desktop="$root/scripts/test-desktop.sh"

section() { printf '\n== %s ==\n' "$1"; }

echo "Tolkaro benchmarks, $(date -u '+%Y-%m-%d %H:%M UTC'), $(nproc) cores, load $(cut -d' ' -f1-3 /proc/loadavg)"

section "Answer parse (MB/s) and answer-in to completion"
"$build/bench/tolkaro-bench-parse" ${quick:+--quick}

section "Translate call to translation over HTTPS, +50 ms per round trip: cold and warm connection"
"$build/bench/tolkaro-bench-warm-connection" ${quick:+5}

section "Start-up to tray icon, idle memory and wake-ups"
"$desktop" --no-targets -- "$build/bench/tolkaro-bench-startup" ${quick:+11}

section "Key monitor: modifier event latency and idle wake-ups"
"$desktop" --no-targets -- "$build/bench/tolkaro-bench-keymonitor"

section "Text capture latency per target"
"$desktop" -- "$build/bench/tolkaro-bench-capture"

if [ -x "$build/bench/tolkaro-bench-gesture" ]; then
  section "Gesture: second Ctrl press to popup, answer to text shown"
  "$desktop" -- "$build/bench/tolkaro-bench-gesture"
fi

section "Memory over 1,000 translations"
"$desktop" --no-targets -- "$build/bench/tolkaro-bench-memory" ${quick:+200}
