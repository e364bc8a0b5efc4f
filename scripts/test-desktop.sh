#!/usr/bin/env bash
# Runs a command inside a private, throw-away X desktop: Xvfb, a D-Bus session with the
# accessibility bus switched on, a window manager, a system tray and two target applications
# (GTK 3 and Qt 6) that the desktop tests read text from and type into.
#
# Usage: scripts/test-desktop.sh [options] -- COMMAND [ARGS...]
#   --session NAME      x11 (default: Xvfb and openbox), gnome-wayland (a headless GNOME
#                       Shell) or kde-wayland (KWin's virtual backend); the session's
#                       scripts/desktop-NAME.sh says what it adds
#   --no-targets        do not start the two target applications
#   --timeout SECONDS   stop COMMAND after this long (exit 124); default: no limit
#   --screenshot PATH   on failure, save a screenshot of the desktop to PATH
#   --logs DIR          on failure, copy the logs of the desktop's programs into DIR
#   --qt-target PATH    the tolkaro-qt-target executable (default: from $BUILD_DIR, ./build,
#                       the newest build*/ tree, or $PATH)
#   -v, --verbose       say how long each step took
# Environment: TOLKARO_DESKTOP_SCREENSHOT=PATH is the same as --screenshot;
#   TOLKARO_DESKTOP_LOGS=DIR as --logs;
#   TOLKARO_QT_TARGET=PATH as --qt-target; TOLKARO_DESKTOP_STEP_TIMEOUT (seconds, default 15)
#   bounds each wait of the bring-up.
#
# COMMAND sees DISPLAY, fresh XDG_RUNTIME_DIR / XDG_CONFIG_HOME / XDG_DATA_HOME /
# XDG_CACHE_HOME (HOME is left alone), and:
#   TOLKARO_DESKTOP_DIR        scratch directory, removed afterwards
#   TOLKARO_WM_PID, TOLKARO_TRAY_PID
#   TOLKARO_GTK_TARGET         path of the GTK target (runs with /usr/bin/python3)
#   TOLKARO_QT_TARGET          path of the Qt target (needs QT_LINUX_ACCESSIBILITY_ALWAYS_ON=1)
#   TOLKARO_GTK_TARGET_PID, TOLKARO_GTK_TARGET_TITLE, TOLKARO_GTK_TARGET_LOG
#   TOLKARO_QT_TARGET_PID, TOLKARO_QT_TARGET_TITLE, TOLKARO_QT_TARGET_LOG
#     (the *_LOG files collect the targets' output: READY, COPY and PASTE lines)
#
# Exit status: COMMAND's; 124 when it timed out; 125 when the desktop did not come up.
# Everything started here is stopped by PID, in reverse order, however COMMAND ends.
set -uo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
self="$root/scripts/test-desktop.sh"

. "$root/scripts/desktop-lib.sh"

if [ "${1:-}" != "--inner" ]; then
    # ---- Outer stage: options, private directories, the X server. ----
    targets=1 command_timeout=0 verbose=0 session=x11
    screenshot="${TOLKARO_DESKTOP_SCREENSHOT:-}"
    keep_logs="${TOLKARO_DESKTOP_LOGS:-}"
    qt_target="${TOLKARO_QT_TARGET:-}"
    usage() { sed -n '2,/^set -uo/{/^set -uo/d;s/^# \{0,1\}//;p}' "$self" >&2; exit 2; }
    while [ $# -gt 0 ]; do
        case "$1" in
            --no-targets) targets=0 ;;
            --session) session="${2:?--session needs a name}"; shift ;;
            --timeout) command_timeout="${2:?--timeout needs seconds}"; shift ;;
            --screenshot) screenshot="${2:?--screenshot needs a path}"; shift ;;
            --logs) keep_logs="${2:?--logs needs a directory}"; shift ;;
            --qt-target) qt_target="${2:?--qt-target needs a path}"; shift ;;
            -v | --verbose) verbose=1 ;;
            -h | --help) usage ;;
            --) shift; break ;;
            *) log "unknown option: $1"; usage ;;
        esac
        shift
    done
    [ $# -gt 0 ] || { log "no command given"; usage; }

    if [ "$targets" = 1 ] && [ -z "$qt_target" ]; then
        qt_target="$(find_built tests/fixtures/tolkaro-qt-target)"
    fi
    if [ "$targets" = 1 ] && [ ! -x "$qt_target" ]; then
        log "error: no tolkaro-qt-target executable; build it (cmake --build BUILD --target" \
            "tolkaro-qt-target) and pass --qt-target PATH, or use --no-targets"
        exit 125
    fi
    if [ "$session" != x11 ]; then
        # Each Wayland desktop brings itself up in a script of its own.
        [ -x "$root/scripts/desktop-$session.sh" ] || { log "unknown session: $session"; usage; }
        export TOLKARO_DESKTOP__TARGETS="$targets" TOLKARO_DESKTOP__TIMEOUT="$command_timeout" \
            TOLKARO_DESKTOP__VERBOSE="$verbose" TOLKARO_DESKTOP__LOGS="$keep_logs" \
            TOLKARO_DESKTOP__SCREENSHOT="$screenshot" \
            TOLKARO_DESKTOP__STARTED_MS="$(now_ms)" TOLKARO_QT_TARGET="$qt_target"
        exec "$root/scripts/desktop-$session.sh" "$@"
    fi
    require_tools Xvfb dbus-run-session gdbus openbox trayer xprop /usr/bin/python3

    started_ms=$(now_ms)
    make_desktop_dir desktop
    export TOLKARO_DESKTOP__TARGETS="$targets" TOLKARO_DESKTOP__TIMEOUT="$command_timeout" \
        TOLKARO_DESKTOP__SCREENSHOT="$screenshot" TOLKARO_DESKTOP__VERBOSE="$verbose" \
        TOLKARO_DESKTOP__STARTED_MS="$started_ms" TOLKARO_QT_TARGET="$qt_target"

    xvfb_pid="" session_pid=""
    outer_teardown() {
        local status=$?
        trap - EXIT INT TERM
        # The inner stage stops what it started; make sure it gets the chance.
        if [ -n "$session_pid" ] && kill -0 "$session_pid" 2>/dev/null; then
            [ -s "$dir/inner.pid" ] && kill -TERM "$(cat "$dir/inner.pid")" 2>/dev/null
            for _ in $(seq 100); do kill -0 "$session_pid" 2>/dev/null || break; sleep 0.05; done
            stop_pids "$session_pid"
        fi
        [ -n "$xvfb_pid" ] && stop_pids "$xvfb_pid"
        keep_logs_on_failure "$status" "$keep_logs"
        rm -rf "$dir"
        exit "$status"
    }
    trap outer_teardown EXIT
    trap 'exit 130' INT
    trap 'exit 143' TERM

    # -noreset: the server would otherwise reset each time its last client leaves, which
    # happens between the short-lived probes of the bring-up.
    Xvfb -displayfd 3 -screen 0 1280x800x24 -nolisten tcp -noreset \
        3>"$dir/display" >"$dir/logs/xvfb.log" 2>&1 &
    xvfb_pid=$!
    deadline=$(($(now_ms) + step_timeout * 1000))
    until grep -q '^[0-9]\+$' "$dir/display" 2>/dev/null; do
        if ! kill -0 "$xvfb_pid" 2>/dev/null || [ "$(now_ms)" -ge "$deadline" ]; then
            log "error: the X server (Xvfb) did not come up within ${step_timeout} s:"
            tail -n 20 "$dir/logs/xvfb.log" >&2
            exit 125
        fi
        sleep 0.02
    done
    export DISPLAY=":$(cat "$dir/display")"
    [ "$verbose" = 1 ] && log "Xvfb on $DISPLAY after $(($(now_ms) - started_ms)) ms"

    run_inner_stage "$@"
    exit $?
fi

# ---- Inner stage: accessibility, window manager, tray, targets, the command. ----
shift
begin_inner_stage
echo $$ >"$dir/inner.pid"

a11y_registry_answers() {
    local address
    address=$(gdbus call --session --timeout 2 --dest org.a11y.Bus --object-path /org/a11y/bus \
        --method org.a11y.Bus.GetAddress) || return 1
    address=${address#(\'}
    address=${address%\',)}
    gdbus call --address "$address" --timeout 2 --dest org.a11y.atspi.Registry \
        --object-path /org/a11y/atspi/accessible/root \
        --method org.freedesktop.DBus.Properties.Get org.a11y.atspi.Accessible ChildCount
}
wm_is_running() { xprop -root _NET_SUPPORTING_WM_CHECK | grep -q 'window id'; }

wait_until "the accessibility switch (org.a11y.Status on the session bus)" "" "" set_a11y_enabled
wait_until "the AT-SPI registry (accessibility bus)" "" "" a11y_registry_answers
step "accessibility bus up"

start openbox openbox --sm-disable --config-file "$root/tests/desktop/openbox-rc.xml"
export TOLKARO_WM_PID=$!
wait_until "the window manager (openbox; _NET_SUPPORTING_WM_CHECK)" "$TOLKARO_WM_PID" \
    "$logs/openbox.log" wm_is_running
step "window manager up"

start trayer trayer --edge bottom --align right --widthtype request --height 24 \
    --SetDockType true --SetPartialStrut true --transparent false --tint 0x303030
export TOLKARO_TRAY_PID=$!
wait_until "the system tray (trayer; owner of _NET_SYSTEM_TRAY_S0)" "$TOLKARO_TRAY_PID" \
    "$logs/trayer.log" /usr/bin/python3 "$root/scripts/test-desktop-wait.py" selection-owner _NET_SYSTEM_TRAY_S0 0
step "tray up"

export TOLKARO_GTK_TARGET="$root/tests/fixtures/gtk_target.py"
[ "$TOLKARO_DESKTOP__TARGETS" = 1 ] && start_targets x11 xcb

log "desktop up on $DISPLAY in $(($(now_ms) - started_ms)) ms"
bringing_up=0

export QT_QPA_PLATFORM=xcb
run_command "$@"
