// Mindmeter's front-application exporter in the script form GNOME Shell 43 and 44 load.
const {Gio, GLib, Shell} = imports.gi;
const Me = imports.misc.extensionUtils.getCurrentExtension();
const {FrontApplicationExporter} = Me.imports.frontApplication;

let exporter = null;

function init() {}

function enable() {
    exporter = new FrontApplicationExporter({Gio, GLib, Shell}, global);
    exporter.enable();
}

function disable() {
    exporter?.disable();
    exporter = null;
}
