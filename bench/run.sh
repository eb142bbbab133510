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
frames_mbps=$(calc %.1f "$(csv_field "$logs/receive.csv" "$row:0" bytes_per_second) / 1e6")
per_point=$(text_field "$logs/records.txt" 'heap kept\/point')
idle=$(calc %.3f "$(csv_field "$logs/platform.csv" 'Run_Until_Idle_2s/port_and_timer:1' cpu_fraction) * 100")
pump=$(calc %.2f "$(csv_field "$logs/platform.csv" 'DoEvents_Loop_2s/port_and_timer:1' cpu_fraction) * 100")

line() { printf '%-46s %-30s %-12s %s\n' "$@"; }
echo
line "figure" "measured" "target" "met"
line "receive and decode, in memory" "$mbps MB/s, $rps M records/s" "> 100 MB/s" "$(verdict "$mbps > 100")"
line "  framing, checks and ACKs alone" "$frames_mbps MB/s" "" ""
line "memory per stored track point" "$per_point bytes" "< 200 bytes" "$(verdict "$per_point < 200")"
line "trekcom get tracks, $(kv large_points) points, unpaced" "$(kv trekcom_large_s) s$([ "$(kv trekcom_large_ok)" = 1 ] || echo ', INCOMPLETE')" "" ""
if [ -n "$(kv gpsbabel_s)" ]; then
    [ "$(kv gpsbabel_large_ok)" = 1 ] || line "  gpsbabel, $(kv large_points) points" "fails (record count > 65535)" "" ""
    line "unpaced, $(kv compare_points) points: trekcom / gpsbabel" "$(kv trekcom_s) s / $(kv gpsbabel_s) s" "" ""
    line "  trekcom's speed-up" "$(kv speedup)x$([ "$(kv compare_ok)" = 1 ] || echo ', INCOMPLETE')" ">= 2x" \
        "$(verdict "$(kv speedup) >= 2")"
fi
paced="$(kv paced_baud) baud, $(kv paced_points) points"
line "paced, $paced:" "" "" ""
line "  trekcom, fraction of line limit" \
    "$(calc %.1f "$(kv trekcom_paced_fraction) * 100")% ($(kv trekcom_paced_s) s / $(kv trekcom_paced_limit_s) s)" \
    ">= 97%" "$(verdict "$(kv trekcom_paced_fraction) >= 0.97")"
[ -n "$(kv gpsbabel_paced_fraction)" ] && line "  gpsbabel, same line" \
    "$(calc %.1f "$(kv gpsbabel_paced_fraction) * 100")% ($(kv gpsbabel_paced_s) s / $(kv gpsbabel_paced_limit_s) s)" "" ""
line "  a host that only ACKs (the pty's ceiling)" \
    "$(calc %.1f "$(kv ack_host_paced_fraction) * 100")% ($(kv ack_host_paced_s) s / $(kv ack_host_paced_limit_s) s)" "" ""
line "  trekcom, fraction of the pty's ceiling" \
    "$(calc %.1f "$(kv trekcom_paced_fraction) / $(kv ack_host_paced_fraction) * 100")%" ">= 97%" \
    "$(verdict "$(kv trekcom_paced_fraction) / $(kv ack_host_paced_fraction) >= 0.97")"
line "host CPU during the paced download: trekcom" "$(calc %.2f "$(kv trekcom_paced_cpu) * 100")% of a core" "" ""
[ -n "$(kv gpsbabel_paced_cpu)" ] && line "  gpsbabel" "$(calc %.2f "$(kv gpsbabel_paced_cpu) * 100")% of a core" "" ""
line "host CPU in a 2 s wait (Run_Until)" "$idle% of a core" "< 5%" "$(verdict "$idle < 5")"
line "host CPU in a loop of DoEvents" "$pump% of a core" "< 5%" "$(verdict "$pump < 5")"
echo
echo "details: $logs/"
