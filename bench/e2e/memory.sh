#!/usr/bin/env bash
# Memory of a large track download.
#
#   memory.sh BUILD_DIR
#
# The tool: its peak resident size (GNU time's "Maximum resident set size")
# while `trekcom get tracks` takes a generated track of POINTS points from
# trekcom-sim over a pty and writes it as GPX; gpsbabel's for the same
# download, run the same way, where it is installed (and for a smaller track). The control: the heap
# it keeps per stored track point (bench_records, on the virtual platform,
# with the same number of points), and what it keeps with a record sink.
#
# Prints one row per figure: figure<TAB>measured<TAB>target<TAB>gpsbabel (or -).
# The details go to standard error. Settings: POINTS (1000000),
# COMPARE_POINTS (60000, a track gpsbabel can take), GPSBABEL_TIMEOUT (900 s).
set -euo pipefail

build=${1:?usage: memory.sh BUILD_DIR}
sim="$build/sim/trekcom-sim"
tool="$build/tools/trekcom"
records="$build/bench/records/bench_records"
points=${POINTS:-1000000}
compare_points=${COMPARE_POINTS:-60000}
gpsbabel_timeout=${GPSBABEL_TIMEOUT:-900}

. "$(dirname "$0")/sim_process.sh"

# peak NAME POINTS COMMAND...: one download of a generated track under GNU
# time, writing $work/NAME.gpx. Sets MB (peak resident size) and WHOLE (1
# when the command succeeded and the file holds every point).
peak() {
    local name=$1 n=$2
    shift 2
    start_sim --gen-track "$n"
    local status=0
    /usr/bin/time -v -o "$work/$name.time" "$@" "$work/$name.gpx" >"$work/$name.log" 2>&1 || status=$?
    stop_sim
    local kb got=0
    kb=$(sed -n 's/.*Maximum resident set size (kbytes): *\([0-9]*\).*/\1/p' "$work/$name.time")
    [ -f "$work/$name.gpx" ] && got=$(grep -c "<trkpt" "$work/$name.gpx" || true)
    MB=$(awk -v k="${kb:-0}" 'BEGIN {printf "%.1f", k / 1024}')
    # The simulator's built-in tracks come along with the generated one.
    WHOLE=0
    [ "$status" = 0 ] && [ "$got" -ge "$n" ] && WHOLE=1
    log "  $name, $n points: exit $status, peak ${kb:-?} kB, $got track points in the file"
    [ "$status" = 0 ] || log "    $(tail -n 2 "$work/$name.log" | tr '\n' ' ')"
}

# Each is run with the output file appended.
trekcom_get=("$tool" --port "$work/gps" --no-progress get tracks -o)
gpsbabel_get=(timeout "$gpsbabel_timeout" gpsbabel -t -i garmin -f "$work/gps" -o gpx -F)
have_gpsbabel=0
command -v gpsbabel >/dev/null && have_gpsbabel=1

# figure_pair N: "trekcom MB" and "gpsbabel MB" (or - when it is missing,
# "failed, peak X" when it did not take the whole track).
figure_pair() {
    peak trekcom "$1" "${trekcom_get[@]}"
    TREKCOM_MB=$MB
    [ "$WHOLE" = 1 ] || TREKCOM_MB="$MB (INCOMPLETE)"
    GPSBABEL_MB=-
    [ "$have_gpsbabel" = 1 ] || return 0
    peak gpsbabel "$1" "${gpsbabel_get[@]}"
    GPSBABEL_MB=$MB
    [ "$WHOLE" = 1 ] || GPSBABEL_MB="failed (peak $MB)"
}

row() { printf '%s\t%s\t%s\t%s\n' "$@"; }

log "get tracks over a pty:"
figure_pair "$points"
large_tool=$TREKCOM_MB large_gpsbabel=$GPSBABEL_MB
# gpsbabel trusts the records packet's 16-bit count and gives up on a
# larger track: a track it can take shows it side by side too.
figure_pair "$compare_points"

log "the control, $points points on the virtual platform:"
"$records" "$points" >"$work/records.txt"
cat "$work/records.txt" >&2
field() { sed -n "s/^$1 *\([0-9.]*\).*/\1/p" "$work/records.txt" | head -n 1; }

row "tool peak RSS, get tracks, $points points (MB)" "$large_tool" "40" "$large_gpsbabel"
row "tool peak RSS, get tracks, $compare_points points (MB)" "$TREKCOM_MB" "-" "$GPSBABEL_MB"
row "control heap per stored track point (bytes)" "$(field 'heap kept\/point ')" "100" "-"
row "  of which sizeof(cTrack) (bytes)" "$(field 'sizeof(cTrack)')" "-" "-"
row "control heap per track point, record sink (bytes)" "$(field 'heap kept\/point, sink')" "100" "-"
