#!/usr/bin/env bash
# The kde-wayland session of scripts/test-desktop.sh (which reads the options): KWin's
# virtual backend with XWayland in a private D-Bus session, accessibility on, and the GTK 3
# and Qt 6 targets running natively on Wayland at the places the X11 desktop gives them.
# Keys and the pointer go through KWin's fake-input protocol (tests/support/
# tolkaro-fake-input, granted to it by a desktop file written here).
#
# COMMAND sees, beside what scripts/test-desktop.sh documents: WAYLAND_DISPLAY, DISPLAY
# (XWayland), XDG_CURRENT_DESKTOP=KDE, XDG_SESSION_TYPE=wayland, QT_QPA_PLATFORM=xcb,
# TOLKARO_DESKTOP_SESSION=kde-wayland, TOLKARO_COMPOSITOR_PID, TOLKARO_GTK_TARGET_ORIGIN and
# TOLKARO_QT_TARGET_ORIGIN (X,Y of the target windows), and TOLKARO_DESKTOP_INPUT:
# a program taking xdotool's commands (keydown 37, type abc, mousemove X Y, click 1) with X
# key codes.
set -uo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
self="$root/scripts/desktop-kde-wayland.sh"

. "$root/scripts/desktop-lib.sh"

if [ "${1:-}" != "--inner" ]; then
    # scripts/test-desktop.sh has read the options (TOLKARO_DESKTOP__*) and found the Qt target.
    keep_logs="${TOLKARO_DESKTOP__LOGS:-}"
    [ $# -gt 0 ] || { log "no command given"; exit 2; }
    fake_input="${TOLKARO_FAKE_INPUT:-$(find_built tests/support/tolkaro-fake-input)}" ||
        { log "error: no tolkaro-fake-input executable; build it (cmake --build BUILD --target tolkaro-fake-input)"; exit 125; }
    require_tools kwin_wayland Xwayland dbus-run-session gdbus /usr/bin/python3

    started_ms="${TOLKARO_DESKTOP__STARTED_MS:-$(now_ms)}"
    make_desktop_dir kde
    trap 'rm -rf "$dir"' EXIT
    mkdir -p "$dir/data/applications"
    # KWin grants its fake-input protocol only to a program whose desktop file asks for it
    # and whose Exec= is that program's own path.
    fake_input="$(readlink -f "$fake_input")"
    printf '[Desktop Entry]\nType=Application\nName=Tolkaro test input\nExec=%s\nNoDisplay=true\nX-KDE-Wayland-Interfaces=org_kde_kwin_fake_input\n' \
        "$fake_input" >"$dir/data/applications/tolkaro-fake-input.desktop"
    # What the status menu offers a user: XWayland sees the modifier keys typed anywhere
    # (native Qt windows hand the accessibility registry no keys).
    printf '[Xwayland]\nXwaylandEavesdrops=Modifiers\n' >"$dir/config/kwinrc"
    # The installed binary carries file capabilities that a container refuses to honour.
    cp "$(command -v kwin_wayland)" "$dir/kwin_wayland"
    export TOLKARO_DESKTOP_INPUT="$fake_input" TOLKARO_DESKTOP__STARTED_MS="$started_ms"
    run_inner_stage "$@"
    status=$?
    keep_logs_on_failure "$status" "$keep_logs"
    exit "$status"
fi

# ---- Inner stage, inside the D-Bus session. ----
shift
begin_inner_stage
kwin_call() {
    local dest=org.kde.KWin
    [ "$2" = /kglobalaccel ] && dest=org.kde.kglobalaccel
    gdbus call --session --timeout 5 --dest "$dest" "$@"
}

wait_until "the accessibility switch (org.a11y.Status)" "" "" set_a11y_enabled
step "accessibility on"

start kwin "$dir/kwin_wayland" --virtual --xwayland --width 1280 --height 800 --socket wayland-tolkaro
export TOLKARO_COMPOSITOR_PID=$! WAYLAND_DISPLAY=wayland-tolkaro
wait_until "KWin (org.kde.KWin /Scripting)" "$TOLKARO_COMPOSITOR_PID" "$logs/kwin.log" \
    kwin_call --object-path /Scripting --method org.kde.kwin.Scripting.isScriptLoaded x
xwayland_display() {
    local child
    for child in $(pgrep -P "$TOLKARO_COMPOSITOR_PID" Xwayland); do
        tr '\0' '\n' <"/proc/$child/cmdline" | grep -m 1 '^:[0-9]\+$'
    done
}
wait_until "XWayland (a child of KWin)" "$TOLKARO_COMPOSITOR_PID" "$logs/kwin.log" \
    sh -c "[ -n \"\$(pgrep -P $TOLKARO_COMPOSITOR_PID Xwayland)\" ]"
export DISPLAY="$(xwayland_display)"
[ -n "$DISPLAY" ] || fail "XWayland has no display number" "$logs/kwin.log"
step "KWin up, XWayland on $DISPLAY"

# As in Plasma, KRunner holds Alt+Space (Tolkaro's typing shortcut falls back, as on GNOME).
kwin_call --object-path /kglobalaccel --method org.kde.KGlobalAccel.doRegister \
    "['krunner', 'run command', 'KRunner', 'Run Command']" >/dev/null &&
    kwin_call --object-path /kglobalaccel --method org.kde.KGlobalAccel.setShortcut \
        "['krunner', 'run command', 'KRunner', 'Run Command']" "[134217760]" 6 >/dev/null ||
    fail "the global shortcut service (org.kde.kglobalaccel in KWin) did not answer" "$logs/kwin.log"

# Wayland windows cannot place themselves: a KWin script gives the targets the places the
# X11 desktop gives them.
cat >"$dir/place-targets.js" <<JS
function place(w) {
    if (w.caption === "$gtk_title") w.frameGeometry = {x: 40, y: 40, width: 560, height: 420};
    if (w.caption === "$qt_title") w.frameGeometry = {x: 680, y: 40, width: 560, height: 420};
}
workspace.clientAdded.connect(function (w) { place(w); w.captionChanged.connect(function () { place(w); }); });
JS
id=$(kwin_call --object-path /Scripting --method org.kde.kwin.Scripting.loadScript \
    "$dir/place-targets.js" tolkaro-test-placement | tr -dc '0-9')
kwin_call --object-path "/$id" --method org.kde.kwin.Script.run >/dev/null ||
    fail "KWin did not run the script that places the targets" "$logs/kwin.log"

export TOLKARO_GTK_TARGET="$root/tests/fixtures/gtk_target.py"
if [ "$TOLKARO_DESKTOP__TARGETS" = 1 ]; then
    # Their toolkits give AT-SPI positions within the window: add these for the screen.
    export TOLKARO_GTK_TARGET_ORIGIN=40,40 TOLKARO_QT_TARGET_ORIGIN=680,40
    start_targets wayland wayland
fi

log "kde-wayland desktop up (WAYLAND_DISPLAY=$WAYLAND_DISPLAY, XWayland $DISPLAY) in $(($(now_ms) - started_ms)) ms"
bringing_up=0
export QT_QPA_PLATFORM=xcb XDG_CURRENT_DESKTOP=KDE XDG_SESSION_TYPE=wayland \
    TOLKARO_DESKTOP_SESSION=kde-wayland
run_command "$@"
