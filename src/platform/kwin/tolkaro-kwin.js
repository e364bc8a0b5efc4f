// Loaded into KWin by Tolkaro (KWinScript): tells Tolkaro, over D-Bus, where the pointer is
// and which windows are on the screen, so that it can find the text under the pointer in a
// Wayland session, where no client may ask. Tolkaro writes its own bus name into the
// placeholders below, loads this script when it starts and unloads it when it quits.
// Written for KWin 5.27 and Plasma 6 alike (clientList/windowList and their signals).
var service = "@SERVICE@";
var path = "@PATH@";
var iface = "@INTERFACE@";
// A call that gets no answer (Tolkaro gone or stuck) must not stop the reports for good.
var staleMs = 1000;

// One call in flight per kind: a burst of pointer motion or window changes becomes the last
// state, sent when the previous call has been answered.
function Channel(method, state) {
    this.method = method;
    this.state = state;
    this.sentAt = 0;
    this.dirty = false;
}
Channel.prototype.send = function () {
    var now = Date.now();
    if (this.sentAt !== 0 && now - this.sentAt < staleMs) {
        this.dirty = true;
        return;
    }
    var channel = this;
    channel.sentAt = now;
    channel.dirty = false;
    callDBus(service, path, iface, channel.method, JSON.stringify(channel.state()), function () {
        channel.sentAt = 0;
        if (channel.dirty)
            channel.send();
    });
};

function allWindows() {
    return workspace.windowList ? workspace.windowList() : workspace.clientList();
}

function onCurrentDesktop(window) {
    if (window.onAllDesktops)
        return true;
    if (window.desktops !== undefined && workspace.currentDesktop.id !== undefined) {
        for (var i = 0; i < window.desktops.length; ++i) {
            if (window.desktops[i].id === workspace.currentDesktop.id)
                return true;
        }
        return false;
    }
    return window.desktop === workspace.currentDesktop;
}

var pointer = new Channel("pointer", function () {
    var at = workspace.cursorPos;
    return [at.x, at.y];
});

var windows = new Channel("windows", function () {
    var list = [];
    var all = allWindows();
    for (var i = 0; i < all.length; ++i) {
        var w = all[i];
        if (w.deleted || w.minimized || w.desktopWindow || !onCurrentDesktop(w))
            continue;
        // The frame holds KWin's decoration; a native window's toolkit counts from its
        // surface, the buffer.
        var g = w.frameGeometry, b = w.bufferGeometry;
        list.push({
            pid: w.pid,
            id: String(w.internalId),
            x: g.x, y: g.y, width: g.width, height: g.height, bufferX: b.x, bufferY: b.y,
            stacking: w.stackingOrder,
            active: w.active,
            x11: w.windowId !== undefined && w.windowId !== 0,
            resourceClass: String(w.resourceClass)
        });
    }
    return list;
});

function sendWindows() {
    windows.send();
}

function watch(window) {
    var signals = ["frameGeometryChanged", "stackingOrderChanged", "minimizedChanged",
                   "desktopsChanged", "desktopChanged"];
    for (var i = 0; i < signals.length; ++i) {
        if (window[signals[i]] !== undefined)
            window[signals[i]].connect(sendWindows);
    }
}

var workspaceSignals = ["clientAdded", "windowAdded", "clientRemoved", "windowRemoved",
                        "clientActivated", "windowActivated", "clientMinimized",
                        "clientUnminimized", "currentDesktopChanged"];
for (var i = 0; i < workspaceSignals.length; ++i) {
    if (workspace[workspaceSignals[i]] !== undefined)
        workspace[workspaceSignals[i]].connect(sendWindows);
}
if (workspace.clientAdded !== undefined)
    workspace.clientAdded.connect(watch);
if (workspace.windowAdded !== undefined)
    workspace.windowAdded.connect(watch);
var existing = allWindows();
for (var j = 0; j < existing.length; ++j)
    watch(existing[j]);

workspace.cursorPosChanged.connect(function () { pointer.send(); });
pointer.send();
sendWindows();
