#!/usr/bin/env bash
# The Python package on a large track: `gps.get("tracks")` of a generated
# track of POINTS points from trekcom-sim over a pty, unpaced, its points/s and
# peak resident size, against the trekcom tool on the same track (the median
# of ROUNDS alternating runs each).
#
#   python.sh BUILD_DIR
#
# Prints one row per figure: figure<TAB>measured<TAB>target<TAB>gpsbabel (or -).
# Settings: POINTS (100000), ROUNDS (3), PYTHON (/usr/bin/python3).
set -euo pipefail

build=${1:?usage: python.sh BUILD_DIR}
sim="$build/sim/trekcom-sim"
tool="$build/tools/trekcom"
points=${POINTS:-100000}
rounds=${ROUNDS:-3}
python=${PYTHON:-/usr/bin/python3}
here=$(cd "$(dirname "$0")" && pwd)

. "$here/sim_process.sh"

py_s=() tool_s=() py_mb=0 py_points=0
for _ in $(seq "$rounds"); do
    start_sim --gen-track "$points"
    read -r py_points s mb < <(PYTHONPATH="$build/python" "$python" "$here/python_get.py" "$work/gps")
    stop_sim
    py_s+=("$s") py_mb=$mb
    log "  python: $py_points points, $s s, peak $mb MB"
    start_sim --gen-track "$points"
    t0=$(date +%s.%N)
    "$tool" --port "$work/gps" --no-progress get tracks -o "$work/tool.gpx" >/dev/null
    t1=$(date +%s.%N)
    stop_sim
    tool_s+=("$(awk "BEGIN { print $t1 - $t0 }")")
    log "  tool: ${tool_s[-1]} s"
done
py=$(median "${py_s[@]}") tool_t=$(median "${tool_s[@]}")
printf 'Python get("tracks"), %s points, points/s\t%s (%s s)\t-\t-\n' "$py_points" \
    "$(awk "BEGIN { printf \"%.0f\", $py_points / $py }")" "$py"
printf '  the tool, the same track, points/s\t%s (%s s)\t\t\n' \
    "$(awk "BEGIN { printf \"%.0f\", $py_points / $tool_t }")" "$(printf '%.3f' "$tool_t")"
printf 'Python peak RSS, get tracks, %s points (MB)\t%s\t-\t-\n' "$py_points" "$py_mb"
