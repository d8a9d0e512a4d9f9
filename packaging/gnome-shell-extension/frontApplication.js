// The front application and the open ones, published on the session bus for Mindmeter.
//
// Shared by both forms of the extension (GNOME 43-44 load scripts, GNOME 45 and later load
// modules): each form passes in what it imported, so this file imports nothing, and the
// build appends the module form's export line. It reads no window contents and does nothing
// while nothing changes: work happens only when the focus or the set of applications moves.

var BUS_NAME = 'com.mindmeter.Mindmeter.Shell';
var OBJECT_PATH = '/com/mindmeter/Mindmeter/Shell';
var INTERFACE_XML = `<node>
  <interface name="com.mindmeter.Mindmeter.Shell">
    <method name="GetFrontApplication">
      <arg type="a{sv}" direction="out" name="application"/>
    </method>
    <method name="GetOpenApplications">
      <arg type="aa{sv}" direction="out" name="applications"/>
    </method>
    <signal name="FrontApplicationChanged">
      <arg type="a{sv}" name="application"/>
    </signal>
    <signal name="OpenApplicationsChanged">
      <arg type="aa{sv}" name="applications"/>
    </signal>
  </interface>
</node>`;

var FrontApplicationExporter = class {
    // gi: {Gio, GLib, Shell}; shellGlobal: the shell's `global`.
    constructor(gi, shellGlobal) {
        this._gi = gi;
        this._global = shellGlobal;
        this._front = {};
        this._frontKey = '';
        this._open = [];
        this._openKey = '';
        this._handlers = [];
    }

    enable() {
        const {Gio, Shell} = this._gi;
        this._exported = Gio.DBusExportedObject.wrapJSObject(INTERFACE_XML, this);
        this._exported.export(Gio.DBus.session, OBJECT_PATH);
        this._nameId = Gio.bus_own_name_on_connection(
            Gio.DBus.session, BUS_NAME, Gio.BusNameOwnerFlags.NONE, null, null);

        const tracker = Shell.WindowTracker.get_default();
        const apps = Shell.AppSystem.get_default();
        this._connect(this._global.display, 'notify::focus-window', () => this._frontChanged());
        // A Wayland window may name its application only after it was mapped and focused.
        this._connect(tracker, 'notify::focus-app', () => this._frontChanged());
        this._connect(apps, 'app-state-changed', () => this._openChanged());
        this._frontChanged();
        this._openChanged();
    }

    disable() {
        for (const [object, id] of this._handlers)
            object.disconnect(id);
        this._handlers = [];
        if (this._nameId) {
            this._gi.Gio.bus_unown_name(this._nameId);
            this._nameId = 0;
        }
        if (this._exported) {
            this._exported.unexport();
            this._exported = null;
        }
    }

    GetFrontApplication() {
        return this._front;
    }

    GetOpenApplications() {
        return this._open;
    }

    _connect(object, signal, handler) {
        this._handlers.push([object, object.connect(signal, handler)]);
    }

    _frontChanged() {
        const front = this._describe(this._global.display.focus_window, null);
        const key = JSON.stringify(this._plain(front));
        if (key === this._frontKey)
            return;
        this._front = front;
        this._frontKey = key;
        this._emit('FrontApplicationChanged', '(a{sv})', [front]);
    }

    _openChanged() {
        const {Shell} = this._gi;
        const open = [];
        for (const app of Shell.AppSystem.get_default().get_running()) {
            const window = app.get_windows()[0];
            if (window)
                open.push(this._describe(window, app));
        }
        const key = JSON.stringify(open.map(a => this._plain(a)));
        if (key === this._openKey)
            return;
        this._open = open;
        this._openKey = key;
        this._emit('OpenApplicationsChanged', '(aa{sv})', [open]);
    }

    // What a window says about its application: the desktop entry the shell matched it to
    // (none for windows the shell could not match), the entry's name, the window's WM_CLASS
    // or Wayland app_id, its GTK application id, and the pid.
    _describe(window, knownApp) {
        const {GLib, Shell} = this._gi;
        if (!window)
            return {};
        const app = knownApp || Shell.WindowTracker.get_default().get_window_app(window);
        const matched = app && !app.is_window_backed();
        const text = value => new GLib.Variant('s', value || '');
        return {
            'desktop-id': text(matched ? app.get_id() : ''),
            'name': text(matched ? app.get_name() : ''),
            'wm-class': text(window.get_wm_class()),
            'wm-instance': text(window.get_wm_class_instance()),
            'gtk-application-id': text(window.get_gtk_application_id()),
            'pid': new GLib.Variant('x', Math.max(0, window.get_pid())),
        };
    }

    _plain(description) {
        const plain = {};
        for (const [name, value] of Object.entries(description))
            plain[name] = value.unpack();
        return plain;
    }

    _emit(signal, type, values) {
        if (this._exported)
            this._exported.emit_signal(signal, new this._gi.GLib.Variant(type, values));
    }
};
