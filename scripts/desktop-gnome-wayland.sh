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
step_timeout="${TOLKARO_DESKTOP_STEP_TIMEOUT:-15}"
uuid="tolkaro-helper@tolkaro.org"
log() { echo "test-desktop (gnome-wayland): $*" >&2; }
now_ms() { date +%s%3N; }
started_ms="${TOLKARO_DESKTOP__STARTED_MS:-$(now_ms)}"
step() { [ "${TOLKARO_DESKTOP__VERBOSE:-0}" = 1 ] && log "$1 after $(($(now_ms) - started_ms)) ms"; }

stop_pids() {
    local pid i
    for ((i = $# ; i > 0 ; i--)); do
        pid="${!i}"
        kill -TERM "$pid" 2>/dev/null || continue
        for _ in $(seq 40); do kill -0 "$pid" 2>/dev/null || break; sleep 0.05; done
        kill -KILL "$pid" 2>/dev/null
        wait "$pid" 2>/dev/null
    done
}

if [ "${1:-}" != "--inner" ]; then
    if [ -z "${TOLKARO_GNOME__NAMESPACE:-}" ]; then
        for tool in gnome-shell pipewire Xwayland dbus-run-session dbus-daemon gdbus unshare ss; do
            command -v "$tool" >/dev/null ||
                { log "error: $tool is missing (scripts/install-deps.sh)"; exit 125; }
        done
        TOLKARO_GNOME__NAMESPACE=1 exec unshare -m --propagation private "$self" "$@"
    fi
    # ---- Outer stage, in the private namespace: directories, settings, the system bus. ----
    [ -d /run/systemd ] && mount -t tmpfs none /run/systemd
    dir="$(mktemp -d "${TMPDIR:-/tmp}/tolkaro-gnome.XXXXXX")" || exit 125
    mkdir -p "$dir/config/glib-2.0/settings" "$dir/data/gnome-shell/extensions" "$dir/cache" \
        "$dir/logs"
    mkdir -m 0700 "$dir/runtime"
    export XDG_RUNTIME_DIR="$dir/runtime" XDG_CONFIG_HOME="$dir/config" \
        XDG_DATA_HOME="$dir/data" XDG_CACHE_HOME="$dir/cache" TOLKARO_DESKTOP_DIR="$dir"
    unset DBUS_SESSION_BUS_ADDRESS AT_SPI_BUS_ADDRESS WAYLAND_DISPLAY DISPLAY NO_AT_BRIDGE
    cp -r "$root/data/gnome-shell/$uuid" "$dir/data/gnome-shell/extensions/"
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
        if [ "$status" -ne 0 ] && [ -n "${TOLKARO_DESKTOP__LOGS:-}" ]; then
            mkdir -p "$TOLKARO_DESKTOP__LOGS" && cp "$dir"/logs/*.log "$TOLKARO_DESKTOP__LOGS"/ \
                2>/dev/null && log "logs kept in $TOLKARO_DESKTOP__LOGS"
        fi
        rm -rf "$dir"
        exit "$status"
    }
    trap outer_teardown EXIT
    trap 'exit 130' INT
    trap 'exit 143' TERM
    system_bus_pid=$(dbus-daemon --session --address="unix:path=$dir/system.sock" --fork \
        --print-pid) || { log "error: the stand-in system bus did not start"; exit 125; }
    export DBUS_SYSTEM_BUS_ADDRESS="unix:path=$dir/system.sock"

    exec 4<&0 6>&1 7>&2
    dbus-run-session -- "$self" --inner "$@" <&4 4<&- >"$dir/logs/dbus.log" 2>&1 &
    session_pid=$!
    wait "$session_pid"
    exit $?
fi

# ---- Inner stage, in the D-Bus session: PipeWire, the shell, input, targets, COMMAND. ----
shift
exec 1>&6 2>&7 6>&- 7>&-
dir="$TOLKARO_DESKTOP_DIR"
logs="$dir/logs"
pids=()
bringing_up=1
inner_teardown() {
    local status=$?
    trap - EXIT INT TERM
    [ "$bringing_up" = 1 ] && [ "$status" -ne 0 ] && status=125
    [ ${#pids[@]} -gt 0 ] && stop_pids "${pids[@]}"
    exit "$status"
}
trap inner_teardown EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

fail() {
    log "error: $1"
    [ -n "${2:-}" ] && [ -s "$2" ] && tail -n 20 "$2" | sed 's/^/  | /' >&2
    exit 125
}
wait_until() {
    local what=$1 pid=$2 logfile=$3
    shift 3
    local deadline=$(($(now_ms) + step_timeout * 1000))
    until "$@" >/dev/null 2>&1; do
        [ -n "$pid" ] && ! kill -0 "$pid" 2>/dev/null && fail "$what: the process exited" "$logfile"
        [ "$(now_ms)" -lt "$deadline" ] || fail "$what did not come up within ${step_timeout} s" "$logfile"
        sleep 0.05
    done
}
start() {
    local name=$1
    shift
    "$@" </dev/null >"$logs/$name.log" 2>&1 &
    pids+=($!)
}
bus_has() {
    gdbus call --session --timeout 2 --dest org.freedesktop.DBus --object-path / \
        --method org.freedesktop.DBus.NameHasOwner "$1" | grep -q true
}
set_a11y_enabled() {
    gdbus call --session --timeout 5 --dest org.a11y.Bus --object-path /org/a11y/bus \
        --method org.freedesktop.DBus.Properties.Set org.a11y.Status IsEnabled '<true>'
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
if [ "${TOLKARO_DESKTOP__TARGETS:-1}" = 1 ]; then
    gtk_title="Tolkaro GTK target" qt_title="Tolkaro Qt target"
    export TOLKARO_GTK_TARGET_TITLE="$gtk_title" TOLKARO_QT_TARGET_TITLE="$qt_title"
    export TOLKARO_GTK_TARGET_LOG="$logs/gtk-target.log" TOLKARO_QT_TARGET_LOG="$logs/qt-target.log"
    start gtk-target env GDK_BACKEND=wayland /usr/bin/python3 "$TOLKARO_GTK_TARGET" --title "$gtk_title"
    export TOLKARO_GTK_TARGET_PID=${pids[-1]}
    wait_until "the GTK target's window" "$TOLKARO_GTK_TARGET_PID" "$TOLKARO_GTK_TARGET_LOG" \
        grep -q '^READY' "$TOLKARO_GTK_TARGET_LOG"
    start qt-target env QT_LINUX_ACCESSIBILITY_ALWAYS_ON=1 QT_QPA_PLATFORM=wayland \
        "$TOLKARO_QT_TARGET" --title "$qt_title"
    export TOLKARO_QT_TARGET_PID=${pids[-1]}
    wait_until "the Qt target's window" "$TOLKARO_QT_TARGET_PID" "$TOLKARO_QT_TARGET_LOG" \
        grep -q '^READY' "$TOLKARO_QT_TARGET_LOG"
    /usr/bin/python3 "$root/scripts/test-desktop-wait.py" atspi-windows "$step_timeout" \
        "$TOLKARO_GTK_TARGET_PID=$gtk_title" "$TOLKARO_QT_TARGET_PID=$qt_title" \
        2>"$logs/atspi-wait.log" ||
        fail "the targets did not appear on the AT-SPI desktop" "$logs/atspi-wait.log"
    # The shell places the windows itself: where they landed, for the tests' pointer.
    for which in GTK QT; do
        pid_var="TOLKARO_${which}_TARGET_PID"
        origin=$(/usr/bin/python3 "$root/scripts/desktop-input.py" origin "${!pid_var}") ||
            fail "the $which target's window was not found on the screen"
        export "TOLKARO_${which}_TARGET_ORIGIN=$origin"
    done
    step "targets on the AT-SPI desktop"
fi

log "desktop up on $WAYLAND_DISPLAY (XWayland $DISPLAY) in $(($(now_ms) - started_ms)) ms"
bringing_up=0
exec 5<&0
if [ "${TOLKARO_DESKTOP__TIMEOUT:-0}" != 0 ]; then
    timeout --kill-after=5 "$TOLKARO_DESKTOP__TIMEOUT" "$@" <&5 5<&- &
else
    "$@" <&5 5<&- &
fi
command_pid=$!
pids+=("$command_pid")
wait "$command_pid"
status=$?
unset 'pids[-1]'
[ "$status" = 124 ] && log "error: the command timed out after $TOLKARO_DESKTOP__TIMEOUT s"
exit "$status"
