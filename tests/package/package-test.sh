#!/bin/bash
# Builds the Debian package, checks that apt can install it here, unpacks it into a scratch
# root and runs what it installed from there: nothing may come from the build or source tree.
# Usage: package-test.sh BUILD_DIR VERSION
set -euo pipefail
build=$1 version=$2
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }

cpack --config "$build/CPackConfig.cmake" -B "$scratch/out" > "$scratch/cpack.log" 2>&1 ||
  { cat "$scratch/cpack.log"; fail "cpack"; }
deb=$(ls "$scratch"/out/varnel_"$version"-1_*.deb)

# Library dependencies computed from the binaries, the others listed.
depends=$(dpkg-deb -f "$deb" Depends)
for needed in libqt6core6 libqt6widgets6 libtesseract5 libgstreamer1.0-0 qt6-qpa-plugins \
              gstreamer1.0-plugins-ugly; do
  [[ $depends == *"$needed"* ]] || fail "Depends lacks $needed: $depends"
done
# apt resolves every dependency on this system (a simulation: nothing is changed).
apt-get install -s "$deb" > "$scratch/apt.log" 2>&1 || { cat "$scratch/apt.log"; fail "apt"; }
grep -q "^Inst varnel " "$scratch/apt.log" || { cat "$scratch/apt.log"; fail "apt won't install"; }

root=$scratch/root
dpkg -x "$deb" "$root"
usr=$root/usr
for f in bin/varnel bin/varnel-cli libexec/varnel/varnel-cli-commands \
         share/applications/app.varnel.Varnel.desktop \
         share/metainfo/app.varnel.Varnel.metainfo.xml share/mime/packages/app.varnel.Varnel.xml \
         share/icons/hicolor/scalable/apps/app.varnel.Varnel.svg \
         share/icons/hicolor/48x48/apps/app.varnel.Varnel.png \
         share/icons/hicolor/256x256/apps/app.varnel.Varnel.png \
         share/man/man1/varnel-cli.1.gz share/man/man1/varnel.1.gz \
         share/bash-completion/completions/varnel-cli; do
  [ -e "$usr/$f" ] || fail "the package lacks /usr/$f"
done

# The installed programs, away from the build: no display, a home of their own.
export HOME=$scratch/home XDG_CONFIG_HOME=$scratch/home/config XDG_RUNTIME_DIR=$scratch/home
mkdir -p -m 700 "$HOME"
unset DISPLAY WAYLAND_DISPLAY QT_QPA_PLATFORM
cd "$scratch"
[ "$("$usr/bin/varnel" --version)" = "Varnel $version" ] || fail "varnel --version"
help=$("$usr/bin/varnel-cli" --help)
[[ $help == *"Exit status"* ]] || fail "varnel-cli --help"
library=$scratch/library
folder=$("$usr/bin/varnel-cli" --library "$library" create-flow --app Shop --name "Sign up")
[[ $("$usr/bin/varnel-cli" --library "$library" list) == "$folder	Shop"* ]] || fail "list"
"$usr/bin/varnel-cli" --library "$library" check > /dev/null || fail "check"
# Without --library: the library of Varnel's settings.
mkdir -p "$XDG_CONFIG_HOME/Varnel"
printf '[General]\nrootFolderPath=%s\n' "$library" > "$XDG_CONFIG_HOME/Varnel/Varnel.conf"
[[ $("$usr/bin/varnel-cli" list) == "$folder	Shop"* ]] || fail "list of the settings' library"
plugin=$("$usr/bin/varnel-cli" figma plugin "$scratch")
[ -s "$plugin" ] || fail "the Figma plugin"

# Started as the desktop starts it, on an X server of its own: the window comes up with its icon,
# and an archive opened from the file manager is offered to the running Varnel for import.
"$usr/bin/varnel-cli" --library "$library" add-screens "$folder" \
  "$usr/share/icons/hicolor/256x256/apps/app.varnel.Varnel.png" > /dev/null
"$usr/bin/varnel-cli" --library "$library" export-app Shop "$scratch/Shop.varnel.zip" > /dev/null
"$usr/bin/varnel-cli" --library "$library" delete-flow "$folder"
exec 3> "$scratch/display"
Xvfb -displayfd 3 -screen 0 1280x800x24 -nolisten tcp > /dev/null 2>&1 &
xvfb=$!
exec 3>&-
app=
trap 'kill $xvfb ${app:-} 2>/dev/null; rm -rf "$scratch"' EXIT
for _ in $(seq 100); do [ -s "$scratch/display" ] && break; sleep 0.1; done
export DISPLAY=:$(cat "$scratch/display")
launch=$(sed -n 's/^Exec=//p' "$usr/share/applications/app.varnel.Varnel.desktop")
[ "$launch" = "varnel %f" ] || fail "the entry starts $launch"
PATH=$usr/bin:$PATH varnel --library "$library" > "$scratch/app.log" 2>&1 &
app=$!
window=$(timeout 60 xdotool search --sync --name "^Varnel — library$" | head -1) ||
  { cat "$scratch/app.log"; fail "no window"; }
# The icon may follow the window's name by a moment. (Output is read whole: with pipefail, an
# early grep -q would fail the pipe.)
has_icon() { [[ $(xprop -id "$window" _NET_WM_ICON) == *"Icon (32 x 32)"* ]]; }
for _ in $(seq 100); do has_icon && break; sleep 0.1; done
has_icon || fail "the window has no icon"
PATH=$usr/bin:$PATH varnel --library "$library" "$scratch/Shop.varnel.zip" ||
  fail "a second start did not hand the archive over"
timeout 30 xdotool search --sync --name "^Import Application…$" > /dev/null ||
  fail "the running Varnel did not offer the archive"
kill $app
wait $app 2>/dev/null || true

# What the desktop reads.
desktop-file-validate "$usr/share/applications/app.varnel.Varnel.desktop" || fail "desktop entry"
appstreamcli validate --no-net "$usr/share/metainfo/app.varnel.Varnel.metainfo.xml" ||
  fail "AppStream metadata"
newest=$(grep -o '<release version="[^"]*"' "$usr/share/metainfo/app.varnel.Varnel.metainfo.xml" |
         head -1 | cut -d'"' -f2)
[ "$newest" = "$version" ] || fail "the newest release in the metadata is $newest, not $version"
mkdir -p "$scratch/mime/packages"
cp "$usr/share/mime/packages/app.varnel.Varnel.xml" "$scratch/mime/packages/"
update-mime-database "$scratch/mime" > /dev/null 2>&1
grep -q "application/x-varnel-archive:\*\.varnel\.zip" "$scratch/mime/globs2" || fail "MIME glob"
grep -q "^MimeType=application/x-varnel-archive;" \
  "$usr/share/applications/app.varnel.Varnel.desktop" || fail "the entry opens no archives"
for page in varnel varnel-cli; do
  [[ $(zcat "$usr/share/man/man1/$page.1.gz" | sed -n 1p) == *"\"Varnel $version\""* ]] ||
    fail "$page.1 is not the manual of $version"
  warnings=$(MANWIDTH=80 man --warnings -l "$usr/share/man/man1/$page.1.gz" 2>&1 >/dev/null)
  [ -z "$warnings" ] || fail "$page.1: $warnings"
done

# Every command of --help is in the manual page and completes.
commands=$(sed -n '/^Commands:/,/^Options:/p' <<< "$help" | grep -oE '^  [a-z][a-z-]*' |
           tr -d ' ' | sort -u)
[ "$(wc -w <<< "$commands")" -ge 15 ] || fail "read no commands from --help: $commands"
manual=$(MANWIDTH=200 man -l "$usr/share/man/man1/varnel-cli.1.gz" 2>/dev/null)
completions=$(bash -c '
  source "$1"
  COMP_WORDS=(varnel-cli ""); COMP_CWORD=1; _varnel_cli; printf "%s\n" "${COMPREPLY[@]}"
  COMP_WORDS=(varnel-cli figma ""); COMP_CWORD=2; _varnel_cli; printf "figma %s\n" "${COMPREPLY[@]}"
' _ "$usr/share/bash-completion/completions/varnel-cli")
for command in $commands; do
  grep -qE "^ +$command( |$)" <<< "$manual" || fail "the manual page lacks $command"
  grep -qx "$command" <<< "$completions" || fail "$command does not complete"
done
for sub in $(grep -oE '^  figma [a-z]+' <<< "$help" | awk '{print $2}'); do
  grep -qx "figma $sub" <<< "$completions" || fail "figma $sub does not complete"
  grep -qE "^ +figma $sub" <<< "$manual" || fail "the manual page lacks figma $sub"
done
echo "varnel_${version}: $(stat -c %s "$deb") bytes, installs and runs"
