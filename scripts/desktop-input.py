#!/usr/bin/python3
"""Keys and pointer through a Wayland compositor's own input path, for the test desktop.

  desktop-input.py serve SOCKET   keeps a Mutter remote-desktop session (with a screen cast
                                  of the monitor, which absolute pointer motion needs) and
                                  plays the commands sent to SOCKET
  desktop-input.py send COMMAND.. plays xdotool-like commands through $TOLKARO_DESKTOP_DIR's
                                  socket and returns once they are played
  desktop-input.py screenshot PNG saves the screen (GNOME Shell's own screenshot, asked under
                                  the screenshot tool's bus name, which the shell trusts)
  desktop-input.py origin PID     prints "x,y": where the window of process PID counts its
                                  accessibility coordinates from on the screen (asked of
                                  Tolkaro's shell helper, before Tolkaro runs)

Commands (xdotool's syntax, X key codes = evdev + 8): keydown CODE.., keyup CODE..,
key NAME|CODE.. (ctrl+v style combinations too), type TEXT, sleep SECONDS, mousemove X Y,
click BUTTON, mousedown BUTTON, mouseup BUTTON.
"""
import os
import socket
import sys
import time

RD = ("org.gnome.Mutter.RemoteDesktop", "/org/gnome/Mutter/RemoteDesktop")
SC = ("org.gnome.Mutter.ScreenCast", "/org/gnome/Mutter/ScreenCast")
# evdev codes of the named keys xdotool accepts that the tests use.
NAMES = {"return": 28, "escape": 1, "tab": 15, "backspace": 14, "space": 57,
         "ctrl": 29, "control_l": 29, "control_r": 97, "alt": 56, "alt_l": 56, "alt_r": 100,
         "shift": 42, "shift_l": 42, "super": 125, "super_l": 125}
LETTERS = "qwertyuiop", "asdfghjkl", "zxcvbnm"
for row, first in zip(LETTERS, (16, 30, 44)):
    for i, ch in enumerate(row):
        NAMES[ch] = first + i
for i, ch in enumerate("1234567890"):
    NAMES[ch] = 2 + i
BUTTONS = {1: 0x110, 2: 0x112, 3: 0x111}  # BTN_LEFT, BTN_MIDDLE, BTN_RIGHT


def key_code(word):
    if word.isdigit():
        return int(word) - 8
    return NAMES[word.lower()]


class Player:
    def __init__(self):
        from gi.repository import Gio, GLib
        self.GLib = GLib
        bus = Gio.bus_get_sync(Gio.BusType.SESSION)

        def proxy(name, path, iface):
            return Gio.DBusProxy.new_sync(bus, 0, None, name, path, iface)

        rd = proxy(*RD, "org.gnome.Mutter.RemoteDesktop")
        path = rd.call_sync("CreateSession", None, 0, 5000, None).unpack()[0]
        self.session = proxy(RD[0], path, "org.gnome.Mutter.RemoteDesktop.Session")
        session_id = self.session.get_cached_property("SessionId").unpack()
        sc = proxy(*SC, "org.gnome.Mutter.ScreenCast")
        cast_path = sc.call_sync("CreateSession", GLib.Variant(
            "(a{sv})", ({"remote-desktop-session-id": GLib.Variant("s", session_id)},)),
            0, 5000, None).unpack()[0]
        cast = proxy(SC[0], cast_path, "org.gnome.Mutter.ScreenCast.Session")
        self.stream = cast.call_sync("RecordMonitor", GLib.Variant("(sa{sv})", ("", {})),
                                     0, 5000, None).unpack()[0]
        self.session.call_sync("Start", None, 0, 5000, None)
        # Mutter drops the first key of a session: spend it on a Shift tap.
        self.key(42, True)
        self.key(42, False)

    def call(self, method, signature, *args):
        self.session.call_sync(method, self.GLib.Variant(signature, args), 0, 5000, None)

    def key(self, code, pressed):
        self.call("NotifyKeyboardKeycode", "(ub)", code, pressed)

    def button(self, button, pressed):
        self.call("NotifyPointerButton", "(ib)", BUTTONS[button], pressed)

    def play(self, words):
        i = 0
        while i < len(words):
            command = words[i]
            i += 1
            args = []
            while i < len(words) and words[i] not in COMMANDS:
                args.append(words[i])
                i += 1
            if command == "keydown":
                for a in args:
                    self.key(key_code(a), True)
            elif command == "keyup":
                for a in args:
                    self.key(key_code(a), False)
            elif command == "key":
                for a in args:
                    codes = [key_code(k) for k in a.split("+")]
                    for c in codes:
                        self.key(c, True)
                    for c in reversed(codes):
                        self.key(c, False)
            elif command == "type":
                for ch in " ".join(args):
                    self.key(key_code(ch if ch != " " else "space"), True)
                    self.key(key_code(ch if ch != " " else "space"), False)
            elif command == "sleep":
                time.sleep(float(args[0]))
            elif command == "mousemove":
                self.call("NotifyPointerMotionAbsolute", "(sdd)", self.stream,
                          float(args[0]), float(args[1]))
            elif command in ("click", "mousedown", "mouseup"):
                b = int(args[0]) if args else 1
                if b not in BUTTONS:  # wheel steps (4, 5) as one discrete scroll
                    if command == "click":
                        self.call("NotifyPointerAxisDiscrete", "(ui)", 0, 1 if b == 5 else -1)
                    continue
                if command != "mouseup":
                    self.button(b, True)
                if command != "mousedown":
                    self.button(b, False)
            # Each step reaches the clients in the order sent; a pause lets them see it.
            time.sleep(0.005)


COMMANDS = {"keydown", "keyup", "key", "type", "sleep", "mousemove", "click", "mousedown",
            "mouseup"}


def serve(path):
    player = Player()
    server = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
    server.bind(path)
    server.listen(4)
    print("READY", flush=True)
    while True:
        connection, _ = server.accept()
        with connection:
            words = connection.makefile("r").readline().split()
            try:
                player.play(words)
                connection.sendall(b"ok\n")
            except Exception as e:  # the client says what failed
                connection.sendall(("error %s\n" % e).encode())


def send(words):
    path = os.path.join(os.environ["TOLKARO_DESKTOP_DIR"], "input.sock")
    client = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
    client.connect(path)
    client.sendall((" ".join(words) + "\n").encode())
    answer = client.makefile("r").readline().strip()
    if answer != "ok":
        print(answer or "no answer", file=sys.stderr)
        return 1
    return 0


def screenshot(path):
    from gi.repository import Gio, GLib
    bus = Gio.bus_get_sync(Gio.BusType.SESSION)
    bus.call_sync("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                  "RequestName", GLib.Variant("(su)", ("org.gnome.Screenshot", 4)), None, 0,
                  2000, None)
    done, _ = bus.call_sync("org.gnome.Shell.Screenshot", "/org/gnome/Shell/Screenshot",
                            "org.gnome.Shell.Screenshot", "Screenshot",
                            GLib.Variant("(bbs)", (True, False, os.path.abspath(path))),
                            None, 0, 10000, None).unpack()
    return 0 if done else 1


def origin(pid):
    """Finds the window by scanning the screen through the helper, under Tolkaro's bus name."""
    from gi.repository import Atspi, Gio, GLib
    bus = Gio.bus_get_sync(Gio.BusType.SESSION)
    bus.call_sync("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                  "RequestName", GLib.Variant("(su)", ("org.tolkaro.Tolkaro", 4)), None, 0,
                  2000, None)
    window = None
    for _ in range(50):  # the helper learns of the name asynchronously
        try:
            for y in range(0, 800, 40):
                for x in range(0, 1280, 40):
                    found = bus.call_sync(
                        "org.tolkaro.ShellHelper", "/org/tolkaro/ShellHelper",
                        "org.tolkaro.ShellHelper1", "WindowAt", GLib.Variant("(iix)", (x, y, 0)),
                        None, 0, 2000, None).unpack()[0]
                    if found.get("pid") == pid:
                        window = found
                        break
                if window:
                    break
            break
        except GLib.Error:
            time.sleep(0.1)
    if not window:
        return 1
    # The toolkit counts from the buffer (GTK 3) or from inside the frame, below its own
    # title bar (Qt), as Tolkaro's platform works out from the window's own size.
    desktop = Atspi.get_desktop(0)
    size = None
    for i in range(desktop.get_child_count()):
        app = desktop.get_child_at_index(i)
        if app and app.get_process_id() == pid and app.get_child_count():
            extents = app.get_child_at_index(0).get_extents(Atspi.CoordType.WINDOW)
            size = (extents.width, extents.height)
    if size == (window["bufferWidth"], window["bufferHeight"]):
        x, y = window["bufferX"], window["bufferY"]
    else:
        sides = window["width"] - size[0]
        x = window["x"] + sides // 2
        y = window["y"] + window["height"] - size[1] - sides // 2
    print("%d,%d" % (x, y))
    return 0


if __name__ == "__main__":
    if len(sys.argv) >= 3 and sys.argv[1] == "serve":
        serve(sys.argv[2])
    elif len(sys.argv) == 3 and sys.argv[1] == "screenshot":
        sys.exit(screenshot(sys.argv[2]))
    elif len(sys.argv) == 3 and sys.argv[1] == "origin":
        sys.exit(origin(int(sys.argv[2])))
    elif len(sys.argv) >= 2 and sys.argv[1] == "send":
        sys.exit(send(sys.argv[2:]))
    else:
        print(__doc__, file=sys.stderr)
        sys.exit(2)
