// Mindmeter's front-application exporter in the module form GNOME Shell 45 and later load.
import Gio from 'gi://Gio';
import GLib from 'gi://GLib';
import Shell from 'gi://Shell';
import {Extension} from 'resource:///org/gnome/shell/extensions/extension.js';

import {FrontApplicationExporter} from './frontApplication.js';

export default class MindmeterExtension extends Extension {
    enable() {
        this._exporter = new FrontApplicationExporter({Gio, GLib, Shell}, global);
        this._exporter.enable();
    }

    disable() {
        this._exporter?.disable();
        this._exporter = null;
    }
}
