// Tolkaro's helper inside GNOME Shell. On Wayland only the compositor sees the whole
// session: the modifier keys whichever window has the focus, the pointer, the windows with
// their processes. This exports what Tolkaro needs of that on the session bus, to Tolkaro
// alone (the owner of org.tolkaro.Tolkaro): every method call from anyone else is refused,
// and the modifier state is a signal sent to Tolkaro's connection only, polled only while
// Tolkaro runs.
'use strict';

const { Clutter, Gio, GLib, Meta, Shell } = imports.gi;
const Main = imports.ui.main;

const BUS_NAME = 'org.tolkaro.ShellHelper';
const OBJECT_PATH = '/org/tolkaro/ShellHelper';
const INTERFACE = 'org.tolkaro.ShellHelper1';
const CLIENT_NAME = 'org.tolkaro.Tolkaro';

// The mask is read every POLL_MS: a key tap lasts 50 ms or more, so every tap is seen, and
// a press's time is off by at most this much against the 400 ms double-press window.
const POLL_MS = 30;
// Control, Shift, Alt (Mod1), Super (Mod4 and Clutter's SUPER), AltGr (Mod5).
const WATCHED = Clutter.ModifierType.SHIFT_MASK | Clutter.ModifierType.CONTROL_MASK |
    Clutter.ModifierType.MOD1_MASK | Clutter.ModifierType.MOD4_MASK |
    Clutter.ModifierType.MOD5_MASK | Clutter.ModifierType.SUPER_MASK;
// After typing, the mask is not reported for this long: Tolkaro's own keys are not the user's.
const TYPING_QUIET_US = 150 * 1000;
// How long Tolkaro's window just shown may take to reach the shell before activating it fails.
const OWN_WINDOW_WAIT_MS = 1000;

const XML = `<node>
  <interface name="${INTERFACE}">
    <method name="GetPointer">
      <arg type="i" direction="out"/><arg type="i" direction="out"/><arg type="u" direction="out"/>
    </method>
    <method name="WindowAt">
      <arg type="i" name="x" direction="in"/><arg type="i" name="y" direction="in"/>
      <arg type="x" name="ignoredPid" direction="in"/>
      <arg type="a{sv}" direction="out"/>
    </method>
    <method name="ActiveWindow"><arg type="a{sv}" direction="out"/></method>
    <method name="ActivateWindow">
      <arg type="t" name="id" direction="in"/><arg type="b" direction="out"/>
    </method>
    <method name="ActivateOwnWindow">
      <arg type="t" name="xid" direction="in"/><arg type="b" direction="out"/>
    </method>
    <method name="TypeControlKey">
      <arg type="s" name="letter" direction="in"/><arg type="b" direction="out"/>
    </method>
    <method name="BindShortcut">
      <arg type="s" name="accelerator" direction="in"/><arg type="b" direction="out"/>
    </method>
    <method name="UnbindShortcut"><arg type="s" name="accelerator" direction="in"/></method>
    <signal name="ModifiersChanged"><arg type="u"/></signal>
    <signal name="ShortcutActivated"><arg type="s"/></signal>
    <property name="Version" type="u" access="read"/>
  </interface>
</node>`;

function describeWindow(window) {
    if (!window)
        return {};
    const frame = window.get_frame_rect();
    const buffer = window.get_buffer_rect();
    const int = v => new GLib.Variant('i', v);
    return {
        pid: new GLib.Variant('x', window.get_pid()),
        id: new GLib.Variant('t', window.get_id()),
        x: int(frame.x), y: int(frame.y), width: int(frame.width), height: int(frame.height),
        bufferX: int(buffer.x), bufferY: int(buffer.y),
        bufferWidth: int(buffer.width), bufferHeight: int(buffer.height),
        wmClass: new GLib.Variant('s', window.get_wm_class() || ''),
        xwayland: new GLib.Variant('b', window.get_client_type() === Meta.WindowClientType.X11),
    };
}

class Helper {
    constructor() {
        this._client = null;
        this._mods = 0;
        this._pollId = 0;
        this._quietUntil = 0;
        this._keyboard = null;
        // accelerator -> {action, count}: Tolkaro may bind one accelerator from two places.
        this._actions = new Map();
        this._acceleratorId = 0;
    }

    enable() {
        this._object = Gio.DBusExportedObject.wrapJSObject(XML, this);
        this._object.export(Gio.DBus.session, OBJECT_PATH);
        this._ownerId = Gio.bus_own_name(Gio.BusType.SESSION, BUS_NAME,
            Gio.BusNameOwnerFlags.NONE, null, null, null);
        this._watchId = Gio.bus_watch_name(Gio.BusType.SESSION, CLIENT_NAME,
            Gio.BusNameWatcherFlags.NONE,
            (_c, _name, owner) => this._clientAppeared(owner),
            () => this._clientVanished());
        this._acceleratorId = global.display.connect('accelerator-activated',
            (_display, action) => {
                for (const [accelerator, bound] of this._actions) {
                    if (bound.action === action && this._client)
                        this._emit('ShortcutActivated', new GLib.Variant('(s)', [accelerator]));
                }
            });
    }

    disable() {
        this._clientVanished();
        global.display.disconnect(this._acceleratorId);
        Gio.bus_unwatch_name(this._watchId);
        Gio.bus_unown_name(this._ownerId);
        this._object.unexport();
        this._object = null;
        this._keyboard = null;
    }

    get Version() {
        return 2;
    }

    _clientAppeared(owner) {
        this._client = owner;
        this._mods = global.get_pointer()[2] & WATCHED;
        if (!this._pollId)
            this._pollId = GLib.timeout_add(GLib.PRIORITY_HIGH, POLL_MS, () => this._poll());
    }

    _clientVanished() {
        this._client = null;
        for (const [accelerator, bound] of [...this._actions]) {
            bound.count = 1;
            this._unbind(accelerator);
        }
        if (this._pollId)
            GLib.source_remove(this._pollId);
        this._pollId = 0;
    }

    _poll() {
        if (GLib.get_monotonic_time() < this._quietUntil)
            return GLib.SOURCE_CONTINUE;
        const mods = global.get_pointer()[2] & WATCHED;
        if (mods !== this._mods) {
            this._mods = mods;
            this._emit('ModifiersChanged', new GLib.Variant('(u)', [mods]));
        }
        return GLib.SOURCE_CONTINUE;
    }

    _ownerOfClientName() {
        try {
            return Gio.DBus.session.call_sync('org.freedesktop.DBus', '/org/freedesktop/DBus',
                'org.freedesktop.DBus', 'GetNameOwner', new GLib.Variant('(s)', [CLIENT_NAME]),
                null, Gio.DBusCallFlags.NONE, 500, null).deepUnpack()[0];
        } catch (e) {
            return null;
        }
    }

    _emit(name, parameters) {
        Gio.DBus.session.emit_signal(this._client, OBJECT_PATH, INTERFACE, name, parameters);
    }

    _fromClient(invocation) {
        // The name watch may not have told of Tolkaro yet: the bus knows for certain.
        if (invocation.get_sender() !== this._client && this._ownerOfClientName() ===
            invocation.get_sender())
            this._clientAppeared(invocation.get_sender());
        return this._client !== null && invocation.get_sender() === this._client;
    }

    // Answers `invocation` with `work`'s result when Tolkaro called, an error otherwise.
    _answer(invocation, signature, work) {
        if (!this._fromClient(invocation)) {
            invocation.return_dbus_error('org.freedesktop.DBus.Error.AccessDenied',
                'This helper answers Tolkaro only');
            return;
        }
        try {
            const result = work();
            invocation.return_value(signature ? new GLib.Variant(signature, result) : null);
        } catch (e) {
            invocation.return_dbus_error('org.freedesktop.DBus.Error.Failed', String(e));
        }
    }

    GetPointerAsync(_parameters, invocation) {
        this._answer(invocation, '(iiu)', () => {
            const [x, y, mods] = global.get_pointer();
            return [x, y, mods & WATCHED];
        });
    }

    WindowAtAsync([x, y, ignoredPid], invocation) {
        this._answer(invocation, '(a{sv})', () => {
            const workspace = global.workspace_manager.get_active_workspace();
            // Bottom to top: the last one containing the point is the topmost.
            const actors = global.get_window_actors();
            for (let i = actors.length - 1; i >= 0; i--) {
                const window = actors[i].get_meta_window();
                if (!window || window.minimized || !window.showing_on_its_workspace() ||
                    !window.located_on_workspace(workspace) || window.get_pid() === ignoredPid)
                    continue;
                const frame = window.get_frame_rect();
                if (x >= frame.x && y >= frame.y && x < frame.x + frame.width &&
                    y < frame.y + frame.height)
                    return [describeWindow(window)];
            }
            return [{}];
        });
    }

    ActiveWindowAsync(_parameters, invocation) {
        this._answer(invocation, '(a{sv})', () => [describeWindow(global.display.focus_window)]);
    }

    // The shell activates windows on its own authority: Mutter's focus-stealing prevention
    // refuses a background client that asks for it.
    ActivateWindowAsync([id], invocation) {
        this._answer(invocation, '(b)', () => {
            const window = global.display.list_all_windows().find(w => w.get_id() === id);
            if (window)
                Main.activateWindow(window, global.get_current_time());
            return [window !== undefined];
        });
    }

    // One of Tolkaro's own X11 windows, by its X window id. Called right after showing it,
    // usually before XWayland has handed it to the shell: then the answer waits for it.
    ActivateOwnWindowAsync([xid], invocation) {
        const pid = this._fromClient(invocation) ? this._clientPid() : -1;
        const hex = `0x${xid.toString(16)}`;
        const isOurs = w => w.get_pid() === pid &&
            (w.get_description() === hex || w.get_description().startsWith(`${hex} `));
        const activate = window => {
            Main.activateWindow(window, global.get_current_time());
            return [true];
        };
        const window = global.display.list_all_windows().find(isOurs);
        if (window || pid < 0) {
            this._answer(invocation, '(b)', () => (window ? activate(window) : [false]));
            return;
        }
        let createdId = 0, timeoutId = 0;
        const finish = created => {
            global.display.disconnect(createdId);
            if (timeoutId)
                GLib.source_remove(timeoutId);
            this._answer(invocation, '(b)', () => (created ? activate(created) : [false]));
        };
        createdId = global.display.connect('window-created', (_display, created) => {
            if (!isOurs(created))
                return;
            // Activated before the shell first shows it, the window would lose the focus
            // again to the placement of a new window.
            const shownId = created.connect('shown', () => {
                created.disconnect(shownId);
                Main.activateWindow(created, global.get_current_time());
            });
            finish(created);
        });
        timeoutId = GLib.timeout_add(GLib.PRIORITY_DEFAULT, OWN_WINDOW_WAIT_MS, () => {
            timeoutId = 0;
            finish(null);
            return GLib.SOURCE_REMOVE;
        });
    }

    _clientPid() {
        try {
            return Gio.DBus.session.call_sync('org.freedesktop.DBus', '/org/freedesktop/DBus',
                'org.freedesktop.DBus', 'GetConnectionUnixProcessID',
                new GLib.Variant('(s)', [this._client || '']), null, Gio.DBusCallFlags.NONE, 500,
                null).deepUnpack()[0];
        } catch (e) {
            return -1;
        }
    }

    TypeControlKeyAsync([letter], invocation) {
        this._answer(invocation, '(b)', () => {
            const keyval = Clutter.unicode_to_keysym(letter.codePointAt(0));
            if (!this._keyboard) {
                const seat = Clutter.get_default_backend().get_default_seat();
                this._keyboard = seat.create_virtual_device(
                    Clutter.InputDeviceType.KEYBOARD_DEVICE);
            }
            // Right Control: the gesture holds the left one, and a key source that tells
            // them apart passes over a right Control.
            this._quietUntil = GLib.get_monotonic_time() + TYPING_QUIET_US;
            const t = GLib.get_monotonic_time();
            this._keyboard.notify_keyval(t, Clutter.KEY_Control_R, Clutter.KeyState.PRESSED);
            this._keyboard.notify_keyval(t + 1, keyval, Clutter.KeyState.PRESSED);
            this._keyboard.notify_keyval(t + 2, keyval, Clutter.KeyState.RELEASED);
            this._keyboard.notify_keyval(t + 3, Clutter.KEY_Control_R, Clutter.KeyState.RELEASED);
            return [true];
        });
    }

    BindShortcutAsync([accelerator], invocation) {
        this._answer(invocation, '(b)', () => {
            const bound = this._actions.get(accelerator);
            if (bound) {
                bound.count++;
                return [true];
            }
            const action = global.display.grab_accelerator(accelerator, Meta.KeyBindingFlags.NONE);
            if (action === Meta.KeyBindingAction.NONE)
                return [false];
            this._actions.set(accelerator, {action, count: 1});
            Main.wm.allowKeybinding(Meta.external_binding_name_for_action(action),
                Shell.ActionMode.ALL);
            return [true];
        });
    }

    UnbindShortcutAsync([accelerator], invocation) {
        this._answer(invocation, null, () => this._unbind(accelerator));
    }

    _unbind(accelerator) {
        const bound = this._actions.get(accelerator);
        if (!bound || --bound.count > 0)
            return;
        global.display.ungrab_accelerator(bound.action);
        Main.wm.allowKeybinding(Meta.external_binding_name_for_action(bound.action),
            Shell.ActionMode.NONE);
        this._actions.delete(accelerator);
    }
}

class Extension {
    enable() {
        this._helper = new Helper();
        this._helper.enable();
    }

    disable() {
        this._helper.disable();
        this._helper = null;
    }
}

function init() {
    return new Extension();
}
