#!/usr/bin/env bash
# The demo: zuvero-demo, a pretend shop with a chat to its support team, against
# a local zuvero-devserver that answers by itself. Needs no network beyond loopback.
#
# With a display the shop opens and is yours to use. Without one (or with
# DEMO_SCRIPTED=1) it plays a scripted conversation offscreen and writes its
# screenshots and transcript to DEMO_OUTPUT (default: demo-output/ in the
# checkout), so that a headless machine sees the demo work too.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=${BUILD:-$here/build}
. "$here/scripts/devserver-lib.sh"
demo=("$build/examples/demo/zuvero-demo" --server "$origin" --api-secret "$secret"
      --ca-file "$authority" --state "$work/state")

if [ -z "${DEMO_SCRIPTED:-}" ] && { [ -n "${DISPLAY:-}" ] || [ -n "${WAYLAND_DISPLAY:-}" ]; }; then
    echo "The agent console, to answer as support: $(sed -n 's/^zuvero-devserver: console: //p' "$work/server.out")"
    "${demo[@]}"
else
    output=${DEMO_OUTPUT:-$here/demo-output}
    rm -rf "$output"
    echo "No display: the demo plays itself offscreen; screenshots and transcript go to $output"
    QT_QPA_PLATFORM=offscreen "${demo[@]}" --language en --script "$output"
    echo
    echo "Screenshots and transcript.txt are in $output"
fi
