// For tests only: brings the window of a given app_id or GTK application id to the front through the
// shell's own activation, since a new window on a headless shell need not take the focus.
const {Gio} = imports.gi;
const Main = imports.ui.main;

const INTERFACE_XML = `<node><interface name="app.mindmeter.tests.Focus">
  <method name="Activate"><arg type="s" direction="in" name="appId"/>
    <arg type="b" direction="out" name="found"/></method>
</interface></node>`;

let exported = null;
let nameId = 0;

const service = {
    Activate(appId) {
        const window = global.get_window_actors().map(a => a.meta_window)
            .find(w => w.get_wm_class() === appId || w.get_gtk_application_id() === appId);
        if (!window)
            return false;
        Main.activateWindow(window);
        return true;
    },
};

function init() {}

function enable() {
    exported = Gio.DBusExportedObject.wrapJSObject(INTERFACE_XML, service);
    exported.export(Gio.DBus.session, '/app/mindmeter/tests/Focus');
    nameId = Gio.bus_own_name_on_connection(Gio.DBus.session, 'app.mindmeter.tests.Focus',
        Gio.BusNameOwnerFlags.NONE, null, null);
}

function disable() {
    Gio.bus_unown_name(nameId);
    exported.unexport();
    exported = null;
}
