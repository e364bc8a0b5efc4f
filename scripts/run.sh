#!/usr/bin/env bash
# Builds Tolkaro and starts it (arguments go to tolkaro, e.g. --help).
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
"$root/scripts/build.sh"
exec "${BUILD_DIR:-$root/build}/src/app/tolkaro" "$@"
