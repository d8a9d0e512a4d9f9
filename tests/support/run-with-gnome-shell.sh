#!/usr/bin/env bash
# Runs a command beside a private, headless GNOME Shell on Wayland (Debian packages
# gnome-shell, mutter, dbus-daemon), so GNOME tests never touch the desktop of the person
# running them:
#   run-with-gnome-shell.sh [--extension DIR]... [--enable UUID]... -- COMMAND...
# Each --extension folder is installed as a user extension under its metadata's uuid; the
# ones named by --enable are switched on before the shell starts. The command sees the
# shell's session bus, WAYLAND_DISPLAY and XDG_RUNTIME_DIR.
set -uo pipefail

if [ "${1:-}" != --inside ]; then
    work=$(mktemp -d)
    trap '[ -n "${system_bus:-}" ] && kill "$system_bus" 2>/dev/null; wait 2>/dev/null; rm -rf "$work"' EXIT
    mkdir -p "$work/home" "$work/data/gnome-shell/extensions" "$work/config" "$work/runtime"
    chmod 700 "$work/runtime"
    # The shell aborts without a system bus: a stand-in of its own, where nothing answers.
    cat >"$work/system.conf" <<CONF
<busconfig><type>system</type><listen>unix:path=$work/system-bus</listen>
<auth>EXTERNAL</auth><policy context="default"><allow send_destination="*" eavesdrop="true"/>
<allow eavesdrop="true"/><allow own="*"/></policy></busconfig>
CONF
    dbus-daemon --config-file="$work/system.conf" --nofork 2>/dev/null &
    system_bus=$!
    export DBUS_SYSTEM_BUS_ADDRESS="unix:path=$work/system-bus"
    export HOME="$work/home" XDG_DATA_HOME="$work/data" XDG_CONFIG_HOME="$work/config"
    export XDG_RUNTIME_DIR="$work/runtime" XDG_SESSION_TYPE=wayland XDG_CURRENT_DESKTOP=GNOME
    export WAYLAND_DISPLAY="mindmeter-test-$$"
    unset DISPLAY DBUS_SESSION_BUS_ADDRESS
    dbus-run-session -- "$0" --inside "$@"
    exit $?
fi
shift

enabled=()
while [ $# -gt 0 ] && [ "$1" != -- ]; do
    case "$1" in
    --extension)
        uuid=$(sed -n 's/.*"uuid": *"\([^"]*\)".*/\1/p' "$2/metadata.json")
        cp -r "$2" "$XDG_DATA_HOME/gnome-shell/extensions/$uuid"
        shift 2 ;;
    --enable) enabled+=("'$2'"); shift 2 ;;
    *) echo "run-with-gnome-shell: unknown option $1" >&2; exit 2 ;;
    esac
done
shift
list=$(IFS=,; echo "${enabled[*]}")
gsettings set org.gnome.shell enabled-extensions "[$list]" || exit 1
gsettings set org.gnome.shell disable-extension-version-validation true

log="$XDG_RUNTIME_DIR/gnome-shell.log"
gnome-shell --wayland --headless --no-x11 --virtual-monitor 1280x720 \
    --wayland-display "$WAYLAND_DISPLAY" >"$log" 2>&1 &
shell=$!
trap 'kill $shell 2>/dev/null; wait $shell 2>/dev/null' EXIT
# Ready once the shell answers on its bus and listens; a busy machine may take a while.
for _ in $(seq 1200); do
    gdbus call --session -d org.gnome.Shell -o /org/gnome/Shell \
        -m org.freedesktop.DBus.Properties.Get org.gnome.Shell ShellVersion >/dev/null 2>&1 &&
        [ -S "$XDG_RUNTIME_DIR/$WAYLAND_DISPLAY" ] && ready=1 && break
    kill -0 $shell 2>/dev/null || break
    sleep 0.1
done
if [ -z "${ready:-}" ]; then
    echo "run-with-gnome-shell: GNOME Shell did not start" >&2
    cat "$log" >&2
    exit 1
fi

"$@"
status=$?
[ $status -ne 0 ] && tail -n 40 "$log" >&2
exit $status
