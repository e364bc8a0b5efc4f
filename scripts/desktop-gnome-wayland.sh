#!/usr/bin/env bash
# The test desktop's GNOME Wayland session, run by scripts/test-desktop.sh --session
# gnome-wayland (which parses the options and passes them on in TOLKARO_DESKTOP__*): a
# headless GNOME Shell with a virtual 1280x800 monitor, XWayland, PipeWire, the accessibility
# bus on, Tolkaro's shell helper installed and enabled before the shell starts, and the GTK 3
# and Qt 6 targets running natively on Wayland. Keys and the pointer go through the
# compositor's remote-desktop input (scripts/desktop-input.py), never through XTest.
#
# COMMAND sees, beside what test-desktop.sh documents: WAYLAND_DISPLAY, DISPLAY (XWayland),
#   XAUTHORITY, XDG_SESSION_TYPE=wayland, XDG_CURRENT_DESKTOP=GNOME, TOLKARO_DESKTOP_SESSION=gnome-wayland,
#   TOLKARO_SHELL_PID, TOLKARO_DESKTOP_INPUT (a command taking xdotool-like words),
#   TOLKARO_GNOME_HELPER_DIR (the installed helper), TOLKARO_GTK_TARGET_ORIGIN and
#   TOLKARO_QT_TARGET_ORIGIN ("x,y": where the target's accessibility coordinates start on
#   the screen; its elements' extents are relative to that).
#
# The shell believes logind runs when /run/systemd/seats exists, and dies on the missing
# system bus: the desktop runs in a private mount namespace with /run/systemd hidden, and a
# private bus stands in for the system bus. Needs root (unshare, mount), as CI runs.
set -uo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
self="$root/scripts/desktop-gnome-wayland.sh"
uuid="tolkaro-helper@tolkaro.org"

. "$root/scripts/desktop-lib.sh"

if [ "${1:-}" != "--inner" ]; then
    if [ -z "${TOLKARO_GNOME__NAMESPACE:-}" ]; then
        if [ "$(id -u)" != 0 ]; then
            # Exit status 77: CTest counts the test as skipped, not failed.
            log "the GNOME session needs root (a private mount namespace): skipped"
            exit 77
        fi
        require_tools gnome-shell pipewire Xwayland dbus-run-session dbus-daemon gdbus unshare ss
        TOLKARO_GNOME__NAMESPACE=1 exec unshare -m --propagation private "$self" "$@"
    fi
    # ---- Outer stage, in the private namespace: directories, settings, the system bus. ----
    [ -d /run/systemd ] && mount -t tmpfs none /run/systemd
    make_desktop_dir gnome
    mkdir -p "$dir/config/glib-2.0/settings" "$dir/data/gnome-shell/extensions"
    cp -r "$root/src/platform/gnome/shell-helper/$uuid" "$dir/data/gnome-shell/extensions/"
    export TOLKARO_GNOME_HELPER_DIR="$dir/data/gnome-shell/extensions/$uuid"
    # Settings in a key file: no dconf service to start. The helper on, no welcome tour,
    # accessibility on for every toolkit.
    export GSETTINGS_BACKEND=keyfile
    cat >"$dir/config/glib-2.0/settings/keyfile" <<SETTINGS
[org/gnome/shell]
enabled-extensions=['$uuid']
disable-user-extensions=false
disable-extension-version-validation=true
welcome-dialog-last-shown-version='999'

[org/gnome/desktop/interface]
toolkit-accessibility=true

[org/gnome/desktop/a11y/applications]
screen-reader-enabled=false
SETTINGS

    system_bus_pid=""
    outer_teardown() {
        local status=$?
        trap - EXIT INT TERM
        [ -n "$system_bus_pid" ] && stop_pids "$system_bus_pid"
        keep_logs_on_failure "$status" "${TOLKARO_DESKTOP__LOGS:-}"
        rm -rf "$dir"
        exit "$status"
    }
    trap outer_teardown EXIT
    trap 'exit 130' INT
    trap 'exit 143' TERM
    system_bus_pid=$(dbus-daemon --session --address="unix:path=$dir/system.sock" --fork \
        --print-pid) || { log "error: the stand-in system bus did not start"; exit 125; }
    export DBUS_SYSTEM_BUS_ADDRESS="unix:path=$dir/system.sock"

    run_inner_stage "$@"
    exit $?
fi

# ---- Inner stage, in the D-Bus session: PipeWire, the shell, input, targets, COMMAND. ----
shift
begin_inner_stage
bus_has() {
    gdbus call --session --timeout 2 --dest org.freedesktop.DBus --object-path / \
        --method org.freedesktop.DBus.NameHasOwner "$1" | grep -q true
}
# The X display the shell listens on for XWayland (it may start XWayland on demand).
xwayland_display() {
    ss -xlpn 2>/dev/null | grep "pid=$TOLKARO_SHELL_PID," |
        grep -o '/tmp/\.X11-unix/X[0-9]*' | head -n 1 | sed 's,.*/X,:,'
}

wait_until "the accessibility switch (org.a11y.Status)" "" "" set_a11y_enabled
step "accessibility bus up"
start pipewire pipewire
wait_until "PipeWire" "${pids[-1]}" "$logs/pipewire.log" test -S "$XDG_RUNTIME_DIR/pipewire-0"
step "PipeWire up"

export XDG_SESSION_TYPE=wayland XDG_CURRENT_DESKTOP=GNOME TOLKARO_DESKTOP_SESSION=gnome-wayland
start gnome-shell gnome-shell --headless --wayland --virtual-monitor 1280x800
export TOLKARO_SHELL_PID=${pids[-1]}
wait_until "GNOME Shell (its Wayland socket)" "$TOLKARO_SHELL_PID" "$logs/gnome-shell.log" \
    test -S "$XDG_RUNTIME_DIR/wayland-0"
export WAYLAND_DISPLAY=wayland-0
wait_until "GNOME Shell's remote desktop" "$TOLKARO_SHELL_PID" "$logs/gnome-shell.log" \
    bus_has org.gnome.Mutter.RemoteDesktop
wait_until "XWayland's display" "$TOLKARO_SHELL_PID" "$logs/gnome-shell.log" \
    test -n "$(xwayland_display)"
export DISPLAY="$(xwayland_display)"
# XWayland lets in only clients with the shell's cookie.
XAUTHORITY="$(ls "$XDG_RUNTIME_DIR"/.mutter-Xwaylandauth.* 2>/dev/null | head -n 1)"
[ -n "$XAUTHORITY" ] && export XAUTHORITY
wait_until "Tolkaro's shell helper (org.tolkaro.ShellHelper)" "$TOLKARO_SHELL_PID" \
    "$logs/gnome-shell.log" bus_has org.tolkaro.ShellHelper
step "GNOME Shell up on $WAYLAND_DISPLAY, XWayland $DISPLAY"

start input /usr/bin/python3 -u "$root/scripts/desktop-input.py" serve "$dir/input.sock"
wait_until "the compositor input player" "${pids[-1]}" "$logs/input.log" grep -q '^READY' "$logs/input.log"
export TOLKARO_DESKTOP_INPUT="/usr/bin/python3 $root/scripts/desktop-input.py send"
# The shell starts in the overview, which would keep the keyboard.
$TOLKARO_DESKTOP_INPUT key Escape || fail "the first key through the compositor" "$logs/input.log"
step "compositor input up"

export TOLKARO_GTK_TARGET="$root/tests/fixtures/gtk_target.py"
if [ "$TOLKARO_DESKTOP__TARGETS" = 1 ]; then
    start_targets wayland wayland
    # The shell places the windows itself: where they landed, for the tests' pointer.
    for which in GTK QT; do
        pid_var="TOLKARO_${which}_TARGET_PID"
        origin=$(/usr/bin/python3 "$root/scripts/desktop-input.py" origin "${!pid_var}") ||
            fail "the $which target's window was not found on the screen"
        export "TOLKARO_${which}_TARGET_ORIGIN=$origin"
    done
    step "target origins found"
fi

log "desktop up on $WAYLAND_DISPLAY (XWayland $DISPLAY) in $(($(now_ms) - started_ms)) ms"
bringing_up=0
run_command "$@"
