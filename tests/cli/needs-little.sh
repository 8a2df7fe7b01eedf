#!/bin/sh
# varnel-cli must not load what only other commands use: every start would pay for it.
set -eu
needed=$(readelf -d "$1" | grep NEEDED)
echo "$needed"
if echo "$needed" | grep -E -i 'gst|tesseract|opencv|curl|Qt6Gui|Qt6Widgets|sqlite|zip|keychain|xcb'; then
  echo "varnel-cli links a library only the other commands need" >&2
  exit 1
fi
