#!/usr/bin/python3
# For tests: one GTK window whose application (and so its Wayland app_id) is argv[1].
import os
import sys

import gi

os.environ["GDK_BACKEND"] = "wayland"

gi.require_version("Gtk", "3.0")
from gi.repository import GLib, Gtk  # noqa: E402


def activate(app):
    window = Gtk.ApplicationWindow(application=app, title=app.get_application_id())
    window.set_default_size(300, 200)
    window.show_all()


GLib.set_prgname(sys.argv[1])  # GTK 3 names its Wayland app_id after the program
app = Gtk.Application(application_id=sys.argv[1])
app.connect("activate", activate)
sys.exit(app.run([]))
