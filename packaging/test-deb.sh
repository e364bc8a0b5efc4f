#!/usr/bin/env bash
# Builds the Debian package from a build tree with CPack, unpacks it into a temporary root
# and checks what it installs: the files and their places, the package's fields and
# dependencies (resolvable on this system), and that the unpacked program starts and
# translates against a loopback HTTP server (python3's http.server, answering every request
# with one translation).
# Usage: packaging/test-deb.sh BUILD_DIR
set -euo pipefail

build_dir="$1"
work="$(mktemp -d)"
server_pid=""
cleanup() {
  local status=$?
  if [ -n "$server_pid" ]; then
    kill "$server_pid" 2>/dev/null || true
    wait "$server_pid" 2>/dev/null || true
  fi
  rm -rf "$work"
  exit "$status"
}
trap cleanup EXIT

failures=0
fail() { echo "FAIL: $*" >&2; failures=$((failures + 1)); }
check() { local what="$1"; shift; if "$@"; then echo "ok: $what"; else fail "$what"; fi; }

if ! cpack --config "$build_dir/CPackConfig.cmake" -G DEB -B "$work/out" >"$work/cpack.log" 2>&1; then
  cat "$work/cpack.log" >&2
  echo "FAIL: cpack" >&2
  exit 1
fi
deb="$(ls "$work"/out/*.deb)"
echo "package: $(basename "$deb") ($(stat -c %s "$deb") bytes)"

field() { dpkg-deb -f "$deb" "$1"; }
check "Package is tolkaro" [ "$(field Package)" = tolkaro ]
check "Architecture is $(dpkg --print-architecture)" [ "$(field Architecture)" = "$(dpkg --print-architecture)" ]
check "Version is the project's" grep -q "^CMAKE_PROJECT_VERSION:STATIC=$(field Version)\$" "$build_dir/CMakeCache.txt"
depends="$(field Depends)"
echo "Depends: $depends"
# Every library the executable links, by the package that ships it, and the SVG plugins
# (loaded at run time for the icons).
needed_packages="libqt6svg6"
for soname in $(objdump -p "$build_dir/src/app/tolkaro" | awk '/NEEDED/ {print $2}'); do
  # awk reads to the end: an early exit would kill ldconfig with SIGPIPE under pipefail.
  library="$(ldconfig -p | awk -v so="$soname" '$1 == so && !found {print $NF; found = 1}')"
  real="$(readlink -f "$library")"
  # dpkg knows a file by the path its package ships, which /usr-merge may have moved.
  owner="$(dpkg -S "$library" "$real" "${real#/usr}" 2>/dev/null | head -n1 | cut -d: -f1 || true)"
  if [ -z "$owner" ]; then
    fail "no package ships $soname"
  else
    needed_packages="$needed_packages $owner"
  fi
done
for package in $(tr ' ' '\n' <<<"$needed_packages" | sort -u); do
  check "Depends names $package" grep -q "\(^\|, \)$package\( \|,\|\$\)" <<<"$depends"
done
check "Recommends at-spi2-core" [ "$(field Recommends)" = at-spi2-core ]
check "the package's dependencies resolve on this system" \
  bash -c "apt-get install --simulate -qq '$deb' 2>&1 | grep -q '^Inst tolkaro'"

root="$work/root"
dpkg-deb -x "$deb" "$root"
dpkg-deb -c "$deb" | awk '{print $6}' | sed 's|^\./|/|' | grep -v '/$' | sort >"$work/files"
expected="/usr/bin/tolkaro
/usr/share/applications/tolkaro.desktop
/usr/share/doc/tolkaro/copyright
/usr/share/gnome-shell/extensions/tolkaro-helper@tolkaro.org/extension.js
/usr/share/gnome-shell/extensions/tolkaro-helper@tolkaro.org/metadata.json
/usr/share/icons/hicolor/128x128/apps/tolkaro.png
/usr/share/icons/hicolor/256x256/apps/tolkaro.png
/usr/share/icons/hicolor/48x48/apps/tolkaro.png
/usr/share/icons/hicolor/scalable/apps/tolkaro.svg
/usr/share/man/man1/tolkaro.1.gz"
check "the package holds exactly its files" diff <(echo "$expected") "$work/files"
check "the executable is executable" [ -x "$root/usr/bin/tolkaro" ]
check "the executable is stripped" bash -c "! file '$root/usr/bin/tolkaro' | grep -q 'not stripped'"
check "every library the executable needs is installed" bash -c "! ldd '$root/usr/bin/tolkaro' | grep -q 'not found'"
check "the licence is MIT" grep -q "^MIT License" "$root/usr/share/doc/tolkaro/copyright"
check "the copyright line" grep -qx "Copyright (c) 2026 The Tolkaro developers" "$root/usr/share/doc/tolkaro/copyright"
check "the menu entry starts tolkaro" grep -qx "Exec=tolkaro" "$root/usr/share/applications/tolkaro.desktop"
check "the menu entry's icon is installed" grep -qx "Icon=tolkaro" "$root/usr/share/applications/tolkaro.desktop"
if command -v desktop-file-validate >/dev/null; then
  check "the menu entry is valid" desktop-file-validate "$root/usr/share/applications/tolkaro.desktop"
fi
for size in 48 128 256; do
  check "the ${size}px icon is ${size}x${size}" \
    bash -c "file '$root/usr/share/icons/hicolor/${size}x${size}/apps/tolkaro.png' | grep -q '$size x $size'"
done
if command -v man >/dev/null; then
  check "the manual page reads without warnings" \
    bash -c "[ -z \"\$(MANWIDTH=80 man --warnings -l '$root/usr/share/man/man1/tolkaro.1.gz' 2>&1 >/dev/null)\" ]"
fi
check "files are owned by root" bash -c "dpkg-deb -c '$deb' | awk '{print \$2}' | sort -u | grep -qx root/root"

# The unpacked program runs: its version, then a translation through the loopback server.
export XDG_CONFIG_HOME="$work/config" XDG_DATA_HOME="$work/data" XDG_RUNTIME_DIR="$work/run"
mkdir -p "$XDG_CONFIG_HOME" "$XDG_DATA_HOME" "$XDG_RUNTIME_DIR" && chmod 700 "$XDG_RUNTIME_DIR"
export QT_QPA_PLATFORM=offscreen
check "tolkaro --version" bash -c "'$root/usr/bin/tolkaro' --version | grep -q '$(field Version)'"
# The request's path names the file; its query is ignored.
mkdir -p "$work/www/translate_a"
printf '%s' '[[["translation of good morning","good morning",null,null,10]],null,"en"]' \
  >"$work/www/translate_a/single"
python3 -u -m http.server --bind 127.0.0.1 --directory "$work/www" 0 >"$work/server.out" 2>&1 &
server_pid=$!
for _ in $(seq 100); do grep -q ' port [0-9]' "$work/server.out" && break; sleep 0.1; done
port="$(sed -n 's/.* port \([0-9]*\) .*/\1/p' "$work/server.out" | head -n1)"
translation="$(TOLKARO_TRANSLATE_URL="http://127.0.0.1:$port" "$root/usr/bin/tolkaro" \
                 --translate "good morning" --to de --quiet 2>&1 || true)"
check "tolkaro --translate through the loopback server (got: $translation)" \
  [ "$translation" = "translation of good morning" ]

if [ "$failures" -ne 0 ]; then
  echo "$failures check(s) failed" >&2
  exit 1
fi
echo "all checks passed"
