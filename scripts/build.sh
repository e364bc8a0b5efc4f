#!/usr/bin/env bash
# Installs missing packages, then configures and builds Tolkaro in ./build (or $BUILD_DIR).
# Extra arguments go to CMake's configure step (for example -DTOLKARO_ASAN=ON).
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="${BUILD_DIR:-$root/build}"
"$root/scripts/install-deps.sh"
cmake -S "$root" -B "$build" -G Ninja "$@" >/dev/null
cmake --build "$build" -j"$(nproc)"
