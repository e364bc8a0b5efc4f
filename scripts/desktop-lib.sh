# Functions shared by the test desktop's sessions (scripts/test-desktop.sh and the
# scripts/desktop-*.sh it runs); sourced, not run. They use the caller's step_timeout,
# verbose, started_ms, logs, pids and TOLKARO_DESKTOP__TIMEOUT.

log() { echo "test-desktop: $*" >&2; }
now_ms() { date +%s%3N; }
step() { [ "$verbose" = 1 ] && log "$1 after $(($(now_ms) - started_ms)) ms"; }

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
