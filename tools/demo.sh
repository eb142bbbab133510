#!/bin/sh
# The main job, on the built-in simulated receiver: identify it, download
# everything it holds, then upload that file to an empty receiver and read it
# back, and capture its screen. Each step is the command a user would type.
set -e
tool="$1/tools/trekcom"
out="$1/demo.gpx"
run() {
    printf '\n$ trekcom %s\n' "$*"
    "$tool" --no-progress "$@"
}
echo "Trekcom demo: a simulated Garmin receiver on a pseudo-terminal (--port sim)"
run --port sim info
run --port sim get all -o "$out"
run --port sim --sim-empty put "$out" --verify
run --port sim pvt -n 3
run --port sim screenshot -o "$1/screen.png"
printf '\nDone. The download is in %s, the screen in %s; docs/trekcom.md lists every command.\n' "$out" "$1/screen.png"
