// Loaded into KWin by Mindmeter: tells Mindmeter over the session bus which window comes to
// the front and which windows are open. KWin 6 names windows "window", KWin 5 "client".
// SERVICE and PATH are filled in by Mindmeter when it loads the script.
const service = "@SERVICE@";
const path = "@PATH@";
const iface = "com.mindmeter.KWinReport";

function text(value) {
    return value === undefined || value === null ? "" : String(value);
}

function facts(w) {
    return [text(w.resourceClass), text(w.resourceName), text(w.desktopFileName),
            text(w.pid)];
}

function reportActivated(w) {
    // No window at all is reported as empty facts; Mindmeter waits a moment before it
    // counts that as nothing in front, since KWin passes through it between two windows.
    const f = w ? facts(w) : ["", "", "", ""];
    callDBus(service, path, iface, "activated", f[0], f[1], f[2], f[3]);
}

function allWindows() {
    return workspace.windowList ? workspace.windowList() : workspace.clientList();
}

function reportOpen() {
    const lines = [];
    const list = allWindows();
    for (let i = 0; i < list.length; ++i) {
        const w = list[i];
        if ((w.normalWindow || w.dialog) && !w.skipTaskbar)
            lines.push(facts(w).join("\t"));
    }
    callDBus(service, path, iface, "windows", lines.join("\n"));
}

if (workspace.windowActivated) {
    workspace.windowActivated.connect(reportActivated);
    workspace.windowAdded.connect(reportOpen);
    workspace.windowRemoved.connect(reportOpen);
} else {
    workspace.clientActivated.connect(reportActivated);
    workspace.clientAdded.connect(reportOpen);
    workspace.clientRemoved.connect(reportOpen);
}
reportOpen();
reportActivated(workspace.activeWindow !== undefined ? workspace.activeWindow
                                                     : workspace.activeClient);
