#!/usr/bin/env bash
# Installs missing packages, then configures and builds Tolkaro in ./build (or $BUILD_DIR).
# Extra arguments, and $TOLKARO_CMAKE_ARGS, go to CMake's configure step
# (for example -DTOLKARO_ASAN=ON).
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="${BUILD_DIR:-$root/build}"
"$root/scripts/install-deps.sh"
# shellcheck disable=SC2086
cmake -S "$root" -B "$build" -G Ninja ${TOLKARO_CMAKE_ARGS:-} "$@" >/dev/null
cmake --build "$build" -j"$(nproc)"
