// Loaded into KWin by Tolkaro (KWinScript::activate) for one activation: no client may
// activate another's window on Wayland, a KWin script may. The window is named by KWin's id
// for it or, for an X11 window of Tolkaro's own just being mapped, by its X11 id; one not
// there yet is activated when it appears.
var wanted = "@WINDOW@";
var wantedX11 = @X11WINDOW@;

function matches(w) {
    return (wanted !== "" && String(w.internalId) === wanted) ||
           (wantedX11 !== 0 && w.windowId === wantedX11);
}

function activate(w) {
    if (workspace.activeWindow !== undefined)
        workspace.activeWindow = w;
    else
        workspace.activeClient = w;
}

function tryActivate() {
    var all = workspace.windowList ? workspace.windowList() : workspace.clientList();
    for (var i = 0; i < all.length; ++i) {
        if (matches(all[i])) {
            activate(all[i]);
            return true;
        }
    }
    return false;
}

if (!tryActivate()) {
    var added = workspace.windowAdded !== undefined ? workspace.windowAdded : workspace.clientAdded;
    added.connect(function (w) {
        if (matches(w))
            activate(w);
    });
}
