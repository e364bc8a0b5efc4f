#!/usr/bin/python3
"""Waits scripts/test-desktop.sh cannot express with the stock X tools.

  test-desktop-wait.py selection-owner NAME TIMEOUT
      until the X selection NAME (e.g. _NET_SYSTEM_TRAY_S0) has an owner.
  test-desktop-wait.py atspi-windows TIMEOUT PID=TITLE...
      until each process PID shows a window titled TITLE on the AT-SPI desktop.

Exit 0 when the condition holds, 1 (with what is missing on stderr) at the timeout.
"""
import ctypes
import ctypes.util
import os
import sys
import time

POLL_SECONDS = 0.05


def wait_for(check, timeout):
    deadline = time.monotonic() + timeout
    while True:
        missing = check()
        if not missing:
            return 0
        if time.monotonic() >= deadline:
            print(missing, file=sys.stderr)
            return 1
        time.sleep(POLL_SECONDS)


def selection_owner(name, timeout):
    xlib = ctypes.CDLL(ctypes.util.find_library("X11") or "libX11.so.6")
    xlib.XOpenDisplay.restype = ctypes.c_void_p
    xlib.XOpenDisplay.argtypes = [ctypes.c_char_p]
    xlib.XInternAtom.restype = ctypes.c_ulong
    xlib.XInternAtom.argtypes = [ctypes.c_void_p, ctypes.c_char_p, ctypes.c_int]
    xlib.XGetSelectionOwner.restype = ctypes.c_ulong
    xlib.XGetSelectionOwner.argtypes = [ctypes.c_void_p, ctypes.c_ulong]
    display = xlib.XOpenDisplay(None)
    if not display:
        print(f"cannot open display {os.environ.get('DISPLAY')}", file=sys.stderr)
        return 1
    atom = xlib.XInternAtom(display, name.encode(), 0)
    return wait_for(lambda: "" if xlib.XGetSelectionOwner(display, atom) else f"no owner of {name}",
                    timeout)


def atspi_windows(timeout, wanted):
    import gi

    gi.require_version("Atspi", "2.0")
    from gi.repository import Atspi

    def check():
        found = set()
        desktop = Atspi.get_desktop(0)
        # The desktop's child list is cached and refreshed by events nobody dispatches here.
        desktop.clear_cache()
        for i in range(desktop.get_child_count()):
            try:
                app = desktop.get_child_at_index(i)
                if app is None:
                    continue
                pid = app.get_process_id()
                if pid not in wanted:
                    continue
                app.clear_cache()
                for j in range(app.get_child_count()):
                    window = app.get_child_at_index(j)
                    if window is not None and window.get_name() == wanted[pid]:
                        found.add(pid)
            except Exception:  # an application that is still starting or already gone
                continue
        return ", ".join(f"pid {pid} ({title!r})" for pid, title in wanted.items() if pid not in found)

    return wait_for(check, timeout)


def main(argv):
    if len(argv) == 4 and argv[1] == "selection-owner":
        return selection_owner(argv[2], float(argv[3]))
    if len(argv) >= 3 and argv[1] == "atspi-windows":
        wanted = {}
        for item in argv[3:]:
            pid, _, title = item.partition("=")
            wanted[int(pid)] = title
        return atspi_windows(float(argv[2]), wanted)
    print(__doc__, file=sys.stderr)
    return 2


if __name__ == "__main__":
    sys.exit(main(sys.argv))
