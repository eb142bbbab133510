# Sourced by the download benchmarks: a temporary folder, trekcom-sim served
# on a pty link in it, and its end however the script ends. Needs $sim.

work=$(mktemp -d)
sim_pid=
cleanup() {
    [ -n "$sim_pid" ] && kill -TERM "$sim_pid" 2>/dev/null && wait "$sim_pid" 2>/dev/null || true
    rm -rf "$work"
}
trap cleanup EXIT

log() { echo "$*" >&2; }
median() { printf '%s\n' "$@" | sort -g | awk '{v[NR] = $1} END {print v[int((NR + 1) / 2)]}'; }

# start_sim SIM_ARGS...: the unit on $work/gps, once it says it is ready.
start_sim() {
    # Emptied here, not by the redirection below: that one happens in the
    # background job, after the wait for "ready" may have read the old file.
    rm -f "$work/sim.out" "$work/sim.err" "$work/gps"
    "$sim" --link "$work/gps" --line-stats "$@" >"$work/sim.out" 2>"$work/sim.err" &
    sim_pid=$!
    for _ in $(seq 100); do
        grep -q ready "$work/sim.out" 2>/dev/null && return 0
        sleep 0.1
    done
    log "trekcom-sim did not start: $(cat "$work/sim.err")"
    exit 1
}

# Stops the simulator; LINE_BYTES is what crossed the line both ways.
stop_sim() {
    kill -TERM "$sim_pid"
    wait "$sim_pid" || true
    sim_pid=
    LINE_BYTES=$(sed -n 's/.*unit sent \([0-9]*\) bytes, host sent \([0-9]*\) bytes.*/\1 \2/p' "$work/sim.err" |
        awk '{print $1 + $2}')
}
