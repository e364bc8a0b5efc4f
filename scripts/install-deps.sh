#!/usr/bin/env bash
# Installs every Debian package Tolkaro needs to build, run and test.
# The one package list of the project: the README's commands and CI both call this.
# Usage: scripts/install-deps.sh [--check]   (--check only lists what is missing)
set -euo pipefail

PACKAGES=(
  # build
  build-essential cmake ninja-build pkg-config git
  qt6-base-dev qt6-base-dev-tools libqt6svg6 qt6-svg-dev qtkeychain-qt6-dev
  libatspi2.0-dev libx11-dev libx11-xcb-dev libxi-dev libxcb1-dev libxcb-xinput-dev libxcb-res0-dev libxcb-xfixes0-dev libxtst-dev libxres-dev libgl-dev
  # the test desktop
  xvfb openbox trayer dbus-x11 dbus-bin at-spi2-core x11-utils xclip xdotool imagemagick xcompmgr xterm
  python3 python3-gi gir1.2-gtk-3.0 gir1.2-atspi-2.0 python3-dbus gir1.2-vte-2.91
  dbus-daemon libglib2.0-bin coreutils
  # KDE Plasma on Wayland: KWin's fake input (build) and the kde-wayland test desktop
  libwayland-dev plasma-wayland-protocols kwin-wayland xwayland qt6-wayland
  qt6-qpa-plugins fonts-dejavu-core fonts-noto-color-emoji
  # the offline translation service and one pair, for its test (apt install apertium-apy apertium-eng-spa)
  apertium-apy apertium-eng-spa
  # certificates made at test time (hostile endpoints)
  openssl
  # the Debian package and its test (cpack -G DEB, packaging/test-deb.sh)
  dpkg-dev desktop-file-utils file
  # fuzzing (fuzz/run.sh): libFuzzer and the sanitizers
  clang libclang-rt-14-dev
)
# The GNOME Wayland test desktop (scripts/desktop-gnome-wayland.sh): a headless GNOME Shell,
# XWayland, PipeWire for the remote-desktop pointer, Qt's Wayland plugin for the Qt target.
# Without recommends: those would pull in a whole desktop.
LEAN_PACKAGES=(
  gnome-shell mutter xwayland pipewire qt6-wayland iproute2 util-linux
)

missing=() missing_lean=()
for p in "${PACKAGES[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
for p in "${LEAN_PACKAGES[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing_lean+=("$p")
done

if [ "${1:-}" = "--check" ]; then
  printf '%s\n' "${missing[@]}" "${missing_lean[@]}"
  exit 0
fi
[ ${#missing[@]} -eq 0 ] && [ ${#missing_lean[@]} -eq 0 ] && exit 0

echo "Installing missing packages: ${missing[*]} ${missing_lean[*]}" >&2
SUDO=""
if [ "$(id -u)" -ne 0 ]; then
  command -v sudo >/dev/null || { echo "error: need root or sudo to install: ${missing[*]}" >&2; exit 1; }
  SUDO="sudo"
fi
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
[ ${#missing[@]} -eq 0 ] || $SUDO apt-get install -y -qq "${missing[@]}"
[ ${#missing_lean[@]} -eq 0 ] || $SUDO apt-get install -y -qq --no-install-recommends "${missing_lean[@]}"
