#!/usr/bin/env bash
# make bench: every benchmark, each one's own output kept in BUILD/bench/logs,
# then one table of the figures against their targets.
#
#   bench/run.sh [BUILD_DIR]
set -euo pipefail

build=${1:-build}
here=$(cd "$(dirname "$0")" && pwd)
logs="$build/bench/logs"
mkdir -p "$logs"

# csv_field FILE ROW COLUMN: a Google Benchmark CSV cell, the row picked by a
# substring of its name, the column by its header.
csv_field() {
    awk -F, -v row="$2" -v col="$3" '
        NR == 1 { for (i = 1; i <= NF; ++i) { gsub(/"/, "", $i); if ($i == col) c = i } next }
        index($1, row) && c { print $c; exit }' "$1"
}
text_field() { sed -n "s/^$2 *\([0-9.]*\).*/\1/p" "$1" | head -n 1; }
kv() { sed -n "s/^$1=//p" "$logs/e2e.txt" | head -n 1; }
calc() { awk "BEGIN { printf \"$1\", $2 }"; }
verdict() { awk "BEGIN { print ($1) ? \"yes\" : \"NO\" }"; }

echo "receive and decode in memory ..." >&2
"$build/bench/link/bench_receive" --benchmark_format=csv >"$logs/receive.csv" 2>"$logs/receive.err"
echo "memory per track point ..." >&2
"$build/bench/records/bench_records" 100000 >"$logs/records.txt"
echo "waiting on the real platform ..." >&2
"$build/bench/platform/bench_platform" --benchmark_format=csv >"$logs/platform.csv" 2>"$logs/platform.err"
echo "downloads from trekcom-sim over a pty, trekcom and gpsbabel (a few minutes) ..." >&2
"$here/e2e/download_vs_gpsbabel.sh" "$build" >"$logs/e2e.txt" 2>"$logs/e2e.log"

row='points:100000/chunk:1048576/decode'
mbps=$(calc %.1f "$(csv_field "$logs/receive.csv" "$row:1" bytes_per_second) / 1e6")
rps=$(calc %.2f "$(csv_field "$logs/receive.csv" "$row:1" records_per_s) / 1e6")
sink_mbps=$(calc %.1f "$(csv_field "$logs/receive.csv" "$row:2" bytes_per_second) / 1e6")
frames_mbps=$(calc %.1f "$(csv_field "$logs/receive.csv" "$row:0" bytes_per_second) / 1e6")
store_rps=$(calc %.2f "$(csv_field "$logs/receive.csv" 'BM_Decode/points:100000/store:1' records_per_s) / 1e6")
codec_rps=$(calc %.2f "$(csv_field "$logs/receive.csv" 'BM_Decode/points:100000/store:0' records_per_s) / 1e6")
per_point=$(text_field "$logs/records.txt" 'heap kept\/point')
idle=$(calc %.3f "$(csv_field "$logs/platform.csv" 'Run_Until_Idle_2s/port_and_timer:1' cpu_fraction) * 100")
pump=$(calc %.2f "$(csv_field "$logs/platform.csv" 'DoEvents_Loop_2s/port_and_timer:1' cpu_fraction) * 100")

# One table: each figure, what this run measured, its target, gpsbabel's
# figure where there is one, and whether the target is met.
line() { printf '%-48s %-26s %-22s %-26s %s\n' "$@"; }
dash() { [ -n "$1" ] && echo "$1" || echo "-"; }
incomplete() { [ "$1" = 1 ] || echo ', INCOMPLETE'; }
echo
line "figure" "measured" "target" "gpsbabel" "met"
line "receive and decode, in memory" "$mbps MB/s ($rps M rec/s)" ">= 300 MB/s" "-" "$(verdict "$mbps >= 300")"
line "receive and decode into a record sink" "$sink_mbps MB/s" ">= 300 MB/s" "-" "$(verdict "$sink_mbps >= 300")"
line "  bound: dispatch and store alone, no line" "$store_rps M rec/s" "" "" ""
line "  bound: the point codec alone" "$codec_rps M rec/s" "" "" ""
line "framing, checks and ACKs alone, in memory" "$frames_mbps MB/s" ">= 1000 MB/s" "-" "$(verdict "$frames_mbps >= 1000")"
line "memory per stored track point" "$per_point bytes" "<= 100 bytes" "-" "$(verdict "$per_point <= 100")"

fast="$(kv fast_points) points, unit at 9600, paced"
if [ -n "$(kv gpsbabel_fast_s)" ]; then
    g8=$(calc %.1f "$(kv gpsbabel_fast_s) / 8")
    line "$fast" "$(kv trekcom_fast_s) s$(incomplete "$(kv trekcom_fast_ok)")" "<= gpsbabel / 8 = $g8 s" \
        "$(kv gpsbabel_fast_s) s (*)" "$(verdict "$(kv trekcom_fast_s) <= $g8 && $(kv trekcom_fast_ok) == 1")"
    line "  line limit at 9600, the same track" "$(kv slow_line_s) s" "" "" ""
else
    line "$fast" "$(kv trekcom_fast_s) s$(incomplete "$(kv trekcom_fast_ok)")" "" "-" ""
fi
if [ -n "$(kv gpsbabel_s)" ]; then
    n=$(kv compare_points)
    t_pps=$(calc %.0f "$n / $(kv trekcom_s)")
    g_pps=$(calc %.0f "$n / $(kv gpsbabel_s)")
    line "unpaced, $n points, points/s" "$t_pps ($(kv speedup)x)$(incomplete "$(kv compare_ok)")" ">= 3x gpsbabel" "$g_pps" \
        "$(verdict "$(kv speedup) >= 3 && $(kv compare_ok) == 1")"
fi
line "unpaced, $(kv large_points) points" "$(kv trekcom_large_s) s$(incomplete "$(kv trekcom_large_ok)")" "" \
    "$([ "$(kv gpsbabel_large_ok)" = 1 ] && echo whole || echo 'fails (count > 65535)')" ""
paced="paced at $(kv paced_baud), $(kv paced_points) points"
g_frac=$([ -n "$(kv gpsbabel_paced_fraction)" ] && calc %.1f%% "$(kv gpsbabel_paced_fraction) * 100")
line "$paced, share of line limit" \
    "$(calc %.1f "$(kv trekcom_paced_fraction) * 100")% ($(kv trekcom_paced_s) s)" ">= 98%" "$(dash "$g_frac")" \
    "$(verdict "$(kv trekcom_paced_fraction) >= 0.98")"
line "  a host that only ACKs (the pty's ceiling)" "$(calc %.1f "$(kv ack_host_paced_fraction) * 100")%" "" "" ""
line "  trekcom, share of the pty's ceiling" \
    "$(calc %.1f "$(kv trekcom_paced_fraction) / $(kv ack_host_paced_fraction) * 100")%" "" "" ""
g_cpu=$([ -n "$(kv gpsbabel_paced_cpu)" ] && calc %.2f%% "$(kv gpsbabel_paced_cpu) * 100")
line "host CPU during the paced download" "$(calc %.2f "$(kv trekcom_paced_cpu) * 100")% of a core" "" "$(dash "$g_cpu")" ""
line "host CPU in a 2 s wait (Run_Until)" "$idle% of a core" "< 5%" "-" "$(verdict "$idle < 5")"
line "host CPU in a loop of DoEvents" "$pump% of a core" "< 5%" "-" "$(verdict "$pump < 5")"
# Rows of the other benchmarks that print their own: figure, measured,
# target and gpsbabel's, tab-separated, one a line.
if [ -x "$here/e2e/memory.sh" ] || [ -f "$here/e2e/memory.sh" ]; then
    echo "memory of the tool and the control ..." >&2
    bash "$here/e2e/memory.sh" "$build" 2>"$logs/memory.log" | while IFS=$'\t' read -r figure measured target gpsbabel; do
        [ -n "$figure" ] && line "$figure" "$measured" "$target" "$(dash "$gpsbabel")" ""
    done
fi
if [ -d "$build/python/trekcom" ]; then
    echo "the Python package on a large track ..." >&2
    bash "$here/e2e/python.sh" "$build" 2>"$logs/python.log" | while IFS=$'\t' read -r figure measured target gpsbabel; do
        [ -n "$figure" ] && line "$figure" "$measured" "$target" "$(dash "$gpsbabel")" ""
    done
fi
echo
[ -n "$(kv gpsbabel_fast_s)" ] &&
    echo "(*) gpsbabel with its defaults stays at 9600: timed on $(kv gpsbabel_slow_points) points ($(kv gpsbabel_slow_s) s), scaled by the points"
echo "details: $logs/"
