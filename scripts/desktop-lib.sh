# Functions shared by the test desktop's sessions (scripts/test-desktop.sh and the
# scripts/desktop-*.sh it runs); sourced, not run. They use the caller's root, self, dir,
# verbose, started_ms, logs, pids and the TOLKARO_DESKTOP__* settings.

# What every session shares: the bound on each wait of the bring-up, the targets' titles.
step_timeout="${TOLKARO_DESKTOP_STEP_TIMEOUT:-15}"
gtk_title="Tolkaro GTK target"
qt_title="Tolkaro Qt target"

log() { echo "test-desktop: $*" >&2; }
now_ms() { date +%s%3N; }
step() { [ "$verbose" = 1 ] && log "$1 after $(($(now_ms) - started_ms)) ms"; }

# require_tools TOOL...: fails the bring-up when a program the session runs is missing.
require_tools() {
    local tool
    for tool in "$@"; do
        command -v "$tool" >/dev/null || { log "error: $tool is missing (scripts/install-deps.sh)"; exit 125; }
    done
}

# find_built RELATIVE: a built helper from $BUILD_DIR, ./build, the newest other build tree,
# then $PATH.
find_built() {
    local relative=$1 newest candidate
    newest="$(ls -t "$root"/build*/"$relative" 2>/dev/null | head -n 1)"
    for candidate in "${BUILD_DIR:-}/$relative" "$root/build/$relative" "$newest" \
        "$(command -v "$(basename "$relative")")"; do
        [ -x "$candidate" ] && [ -f "$candidate" ] && { echo "$candidate"; return 0; }
    done
    return 1
}

# make_desktop_dir KIND: a fresh scratch directory in $dir holding the private XDG
# directories COMMAND sees (exported), and no trace of the caller's session buses.
make_desktop_dir() {
    dir="$(mktemp -d "${TMPDIR:-/tmp}/tolkaro-$1.XXXXXX")" || exit 125
    mkdir -p "$dir/config" "$dir/data" "$dir/cache" "$dir/logs" && mkdir -m 0700 "$dir/runtime" ||
        exit 125
    export XDG_RUNTIME_DIR="$dir/runtime" XDG_CONFIG_HOME="$dir/config" \
        XDG_DATA_HOME="$dir/data" XDG_CACHE_HOME="$dir/cache" TOLKARO_DESKTOP_DIR="$dir"
    unset DBUS_SESSION_BUS_ADDRESS AT_SPI_BUS_ADDRESS WAYLAND_DISPLAY DISPLAY NO_AT_BRIDGE
}

# keep_logs_on_failure STATUS DIR: copies the desktop's logs into DIR (if any) when STATUS
# is a failure.
keep_logs_on_failure() {
    if [ "$1" -ne 0 ] && [ -n "$2" ]; then
        mkdir -p "$2" && cp "$dir"/logs/*.log "$2"/ 2>/dev/null && log "logs kept in $2"
    fi
}

# run_inner_stage ARGS...: runs $self --inner ARGS inside a fresh D-Bus session (which ends,
# taking the accessibility bus with it, when the inner stage exits) and returns its status.
# The bus daemons write their chatter to the session's stdout and stderr: that goes to a log,
# and the inner stage gets our own stdout and stderr back on fds 6 and 7 (see
# begin_inner_stage). In the background so that a signal reaches the caller's trap at once.
run_inner_stage() {
    local status
    exec 4<&0 6>&1 7>&2
    dbus-run-session -- "$self" --inner "$@" <&4 4<&- >"$dir/logs/dbus.log" 2>&1 &
    session_pid=$!
    wait "$session_pid"
    status=$?
    session_pid=""
    return "$status"
}

# begin_inner_stage: the inner stage's settings from the outer one, and its teardown: on
# failure a screenshot (when asked for), 125 while the desktop was still coming up, then
# every process started here stopped, last first.
begin_inner_stage() {
    exec 1>&6 2>&7 6>&- 7>&-
    dir="$TOLKARO_DESKTOP_DIR"
    logs="$dir/logs"
    verbose="$TOLKARO_DESKTOP__VERBOSE"
    started_ms="$TOLKARO_DESKTOP__STARTED_MS"
    screenshot="$TOLKARO_DESKTOP__SCREENSHOT"
    pids=()
    bringing_up=1
    trap inner_teardown EXIT
    trap 'exit 130' INT
    trap 'exit 143' TERM
}
inner_teardown() {
    local status=$?
    trap - EXIT INT TERM
    if [ "$status" -ne 0 ] && [ -n "$screenshot" ] && [ -n "${DISPLAY:-}" ]; then
        # On Wayland the X root window shows only XWayland's windows.
        import -window root "$screenshot" 2>/dev/null &&
            log "screenshot${WAYLAND_DISPLAY:+ (XWayland windows only)} saved to $screenshot"
    fi
    [ "$bringing_up" = 1 ] && [ "$status" -ne 0 ] && status=125
    [ ${#pids[@]} -gt 0 ] && stop_pids "${pids[@]}"
    exit "$status"
}

# Applications check the accessibility switch once, when they start: turn it on first.
set_a11y_enabled() {
    gdbus call --session --timeout 5 --dest org.a11y.Bus --object-path /org/a11y/bus \
        --method org.freedesktop.DBus.Properties.Set org.a11y.Status IsEnabled '<true>'
}

# start_targets GDK_BACKEND QT_QPA_PLATFORM: starts the GTK and Qt targets (exporting their
# TOLKARO_*_TARGET_* variables) and waits until both windows are up and on the AT-SPI desktop.
# One after the other: GNOME Shell places two windows that map at once on top of each other.
start_targets() {
    export TOLKARO_GTK_TARGET_TITLE="$gtk_title" TOLKARO_QT_TARGET_TITLE="$qt_title"
    export TOLKARO_GTK_TARGET_LOG="$logs/gtk-target.log" TOLKARO_QT_TARGET_LOG="$logs/qt-target.log"
    start gtk-target env GDK_BACKEND="$1" /usr/bin/python3 "$TOLKARO_GTK_TARGET" --title "$gtk_title"
    export TOLKARO_GTK_TARGET_PID=$!
    wait_until "the GTK target's window (READY in its output)" "$TOLKARO_GTK_TARGET_PID" \
        "$TOLKARO_GTK_TARGET_LOG" grep -q '^READY' "$TOLKARO_GTK_TARGET_LOG"
    start qt-target env QT_LINUX_ACCESSIBILITY_ALWAYS_ON=1 QT_QPA_PLATFORM="$2" \
        "$TOLKARO_QT_TARGET" --title "$qt_title"
    export TOLKARO_QT_TARGET_PID=$!
    wait_until "the Qt target's window (READY in its output)" "$TOLKARO_QT_TARGET_PID" \
        "$TOLKARO_QT_TARGET_LOG" grep -q '^READY' "$TOLKARO_QT_TARGET_LOG"
    step "target windows mapped"
    /usr/bin/python3 "$root/scripts/test-desktop-wait.py" atspi-windows "$step_timeout" \
        "$TOLKARO_GTK_TARGET_PID=$gtk_title" "$TOLKARO_QT_TARGET_PID=$qt_title" 2>"$logs/atspi-wait.log" ||
        fail "the target applications did not appear on the AT-SPI desktop within ${step_timeout} s:" \
            "$logs/atspi-wait.log"
    step "targets on the AT-SPI desktop"
}

# Stops processes by PID, last started first: SIGTERM, a short grace period, then SIGKILL.
stop_pids() {
    local pid i
    for ((i = $# ; i > 0 ; i--)); do
        pid="${!i}"
        kill -TERM "$pid" 2>/dev/null || continue
        for _ in $(seq 40); do kill -0 "$pid" 2>/dev/null || break; sleep 0.05; done
        kill -KILL "$pid" 2>/dev/null && log "had to kill pid $pid"
        wait "$pid" 2>/dev/null
    done
}

# Fails the bring-up, naming what did not come up and showing the end of its log.
fail() {
    local what=$1 logfile=${2:-}
    log "error: $what"
    [ -n "$logfile" ] && [ -s "$logfile" ] && tail -n 20 "$logfile" | sed 's/^/  | /' >&2
    exit 125
}

# wait_until WHAT PID LOG COMMAND...: polls COMMAND until it succeeds, failing early when
# the process PID (if any) has exited.
wait_until() {
    local what=$1 pid=$2 logfile=$3
    shift 3
    local deadline=$(($(now_ms) + step_timeout * 1000))
    until "$@" >/dev/null 2>&1; do
        if [ -n "$pid" ] && ! kill -0 "$pid" 2>/dev/null; then
            fail "$what: the process exited" "$logfile"
        fi
        [ "$(now_ms)" -lt "$deadline" ] || fail "$what did not come up within ${step_timeout} s" "$logfile"
        sleep 0.05
    done
}

# start NAME COMMAND...: starts a process in the background, output to $logs/NAME.log.
start() {
    local name=$1
    shift
    "$@" </dev/null >"$logs/$name.log" 2>&1 &
    pids+=($!)
}

# run_command COMMAND...: runs the desktop's command and exits with its status (124 when it
# timed out). In the background so that a signal reaches the caller's trap at once; stdin
# passed on explicitly (a background command would otherwise read /dev/null).
run_command() {
    exec 5<&0
    if [ "$TOLKARO_DESKTOP__TIMEOUT" != 0 ]; then
        timeout --kill-after=5 "$TOLKARO_DESKTOP__TIMEOUT" "$@" <&5 5<&- &
    else
        "$@" <&5 5<&- &
    fi
    local command_pid=$! status
    pids+=("$command_pid")
    wait "$command_pid"
    status=$?
    unset 'pids[-1]'
    [ "$status" = 124 ] && [ "$TOLKARO_DESKTOP__TIMEOUT" != 0 ] &&
        log "error: the command timed out after $TOLKARO_DESKTOP__TIMEOUT s"
    exit "$status"
}
