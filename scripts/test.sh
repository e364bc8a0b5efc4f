#!/usr/bin/env bash
# Builds Tolkaro with its tests and runs the whole suite: unit tests and the desktop tests,
# which bring up their own virtual X server, D-Bus, accessibility bus and window manager.
# Arguments go to ctest (for example -R gesture).
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="${BUILD_DIR:-$root/build}"
"$root/scripts/build.sh" -DTOLKARO_BUILD_TESTS=ON
cd "$build"
# A desktop test drives real applications on a shared machine; one that fails is run once
# more, and a second failure fails the suite.
ctest --output-on-failure --timeout 300 --repeat until-pass:2 "$@"
