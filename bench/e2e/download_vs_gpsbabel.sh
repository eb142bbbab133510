#!/usr/bin/env bash
# End-to-end track downloads from trekcom-sim over a pty: `trekcom get tracks`
# against gpsbabel's garmin reader, run alternately on the same simulated unit.
#
#   download_vs_gpsbabel.sh BUILD_DIR
#
# Unpaced: the pty moves bytes as fast as both ends go, so the time is the
# programs' own. Paced: the unit takes 10 bits of line time per byte at
# 115200 baud, both ways; the line's stop-and-wait limit is every byte that
# crossed it (as the simulator counts them) at that rate, and the fraction is
# that limit over the download's wall time. A host that does nothing but
# acknowledge (ack_host) shows what the pty itself allows: the kernel's
# delivery of each frame and each ACK costs time no host can win back.
#
# Automatic line rate: a paced unit that starts at 9600 baud, a 20,000-point
# track; trekcom with its defaults raises the line. gpsbabel with its
# defaults stays at 9600, where the whole track takes over ten minutes: it is
# timed on SLOW_POINTS points and its time scaled by the points (the line's
# time grows with them), beside the line's own limit at 9600, which no host
# can beat.
#
# Prints KEY=VALUE lines for bench/run.sh; the details go to standard error.
# Settings: POINTS (100000), COMPARE_POINTS (60000), ROUNDS (3),
# PACED_POINTS (10000), PACED_BAUD (115200), FAST_POINTS (20000), SLOW_POINTS (500).
set -euo pipefail

build=${1:?usage: download_vs_gpsbabel.sh BUILD_DIR}
sim="$build/sim/trekcom-sim"
tool="$build/tools/trekcom"
points=${POINTS:-100000}
compare_points=${COMPARE_POINTS:-60000}
rounds=${ROUNDS:-3}
paced_points=${PACED_POINTS:-10000}
paced_baud=${PACED_BAUD:-115200}
fast_points=${FAST_POINTS:-20000}
slow_points=${SLOW_POINTS:-500}
builtin_points=65  # the simulator's built-in tracks come along with the generated one

. "$(dirname "$0")/sim_process.sh"

# run NAME POINTS SIM_ARGS... -- CLIENT_ARGS...: one download; sets WALL, CPU
# (user + system seconds), OK (1 when the file holds every point) and LINE_BYTES.
run() {
    local name=$1 n=$2
    shift 2
    local sim_args=()
    while [ "$1" != -- ]; do sim_args+=("$1"); shift; done
    shift
    start_sim --gen-track "$n" "${sim_args[@]}"
    local out="$work/$name.gpx" times="$work/times"
    rm -f "$out"
    local status=0
    local TIMEFORMAT='%R %U %S'
    { time "$@" "$out" >"$work/client.log" 2>&1; } 2>"$times" || status=$?
    stop_sim
    read -r WALL user sys <"$times"
    CPU=$(awk -v u="$user" -v s="$sys" 'BEGIN {printf "%.2f", u + s}')
    local got=0
    [ -f "$out" ] && got=$(grep -c "<trkpt" "$out" || true)
    OK=0
    [ "$status" = 0 ] && { [ "$got" = $((n + builtin_points)) ] || [ "$name" = ack_host ]; } && OK=1
    log "  $name: $n points, ${WALL} s wall, ${CPU} s CPU, exit $status, $got track points in the file"
    [ "$OK" = 1 ] || log "    $(tail -n 2 "$work/client.log" | tr '\n' ' ')"
}

ack_get() { "$build/bench/e2e/ack_host" "$work/gps"; }
trekcom_get() { "$tool" --port "$work/gps" --no-progress get tracks -o "$1"; }
gpsbabel_get() { gpsbabel -t -i garmin -f "$work/gps" -o gpx -F "$1"; }

have_gpsbabel=0
command -v gpsbabel >/dev/null && have_gpsbabel=1

# The large download, trekcom alone: a transfer of more than 65535 records
# overflows the 16-bit count of the records packet, which gpsbabel trusts.
log "unpaced, $points points:"
run trekcom "$points" -- trekcom_get
echo "large_points=$points"
echo "trekcom_large_s=$WALL"
echo "trekcom_large_ok=$OK"
if [ "$have_gpsbabel" = 1 ]; then
    run gpsbabel "$points" -- gpsbabel_get
    echo "gpsbabel_large_ok=$OK"
fi

if [ "$have_gpsbabel" = 1 ]; then
    log "unpaced, $compare_points points, $rounds rounds alternating:"
    t_times=() g_times=() all_ok=1
    for _ in $(seq "$rounds"); do
        run trekcom "$compare_points" -- trekcom_get
        t_times+=("$WALL"); [ "$OK" = 1 ] || all_ok=0
        run gpsbabel "$compare_points" -- gpsbabel_get
        g_times+=("$WALL"); [ "$OK" = 1 ] || all_ok=0
    done
    t=$(median "${t_times[@]}") g=$(median "${g_times[@]}")
    echo "compare_points=$compare_points"
    echo "trekcom_s=$t"
    echo "gpsbabel_s=$g"
    echo "speedup=$(awk -v t="$t" -v g="$g" 'BEGIN {printf "%.2f", g / t}')"
    echo "compare_ok=$all_ok"
fi

log "paced at $paced_baud baud, $paced_points points:"
paced() {  # paced NAME CLIENT...: prints NAME_fraction and NAME_cpu
    local name=$1
    shift
    run "$name" "$paced_points" --baud "$paced_baud" --pace --any-baud -- "$@"
    local limit
    limit=$(awk -v b="$LINE_BYTES" -v r="$paced_baud" 'BEGIN {printf "%.3f", b * 10 / r}')
    log "    line limit ${limit} s ($LINE_BYTES bytes both ways)"
    echo "${name}_paced_s=$WALL"
    echo "${name}_paced_limit_s=$limit"
    echo "${name}_paced_fraction=$(awk -v l="$limit" -v w="$WALL" 'BEGIN {printf "%.3f", l / w}')"
    echo "${name}_paced_cpu=$(awk -v c="$CPU" -v w="$WALL" 'BEGIN {printf "%.4f", c / w}')"
    echo "${name}_paced_ok=$OK"
}
paced trekcom "$tool" --port "$work/gps" --settings "$paced_baud,N,8,1" --no-progress get tracks -o
[ "$have_gpsbabel" = 1 ] && paced gpsbabel gpsbabel -t -i garmin -f "$work/gps" -o gpx -F
paced ack_host ack_get
echo "paced_points=$paced_points"
echo "paced_baud=$paced_baud"

log "paced, the unit starting at 9600 baud:"
run trekcom "$fast_points" --baud 9600 --pace -- trekcom_get
echo "fast_points=$fast_points"
echo "trekcom_fast_s=$WALL"
echo "trekcom_fast_ok=$OK"
if [ "$have_gpsbabel" = 1 ]; then
    run gpsbabel "$slow_points" --baud 9600 --pace -- gpsbabel_get
    echo "gpsbabel_slow_points=$slow_points"
    echo "gpsbabel_slow_s=$WALL"
    echo "gpsbabel_slow_ok=$OK"
    echo "gpsbabel_fast_s=$(awk -v w="$WALL" -v n="$slow_points" -v f="$fast_points" -v b="$builtin_points" \
        'BEGIN {printf "%.1f", w * (f + b) / (n + b)}')"
    # The line's limit at 9600 for the whole track: every byte both ways.
    echo "slow_line_s=$(awk -v l="$LINE_BYTES" -v n="$slow_points" -v f="$fast_points" -v b="$builtin_points" \
        'BEGIN {printf "%.1f", l * 10 / 9600 * (f + b) / (n + b)}')"
fi
