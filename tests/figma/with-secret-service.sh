#!/bin/sh
# Runs a command inside a D-Bus session of its own, with a gnome-keyring whose login keyring is
# unlocked; everything it keeps lives in a temporary folder removed afterwards.
set -e
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
mkdir -m 700 "$tmp/run"
export XDG_RUNTIME_DIR="$tmp/run" XDG_DATA_HOME="$tmp/data" HOME="$tmp"
dbus-run-session -- sh -c \
  'echo varnel-test | gnome-keyring-daemon --unlock --components=secrets >/dev/null && "$@"' \
  sh "$@"
