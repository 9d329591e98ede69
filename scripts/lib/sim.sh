# A simulated device for the scripts: a private bus, vyxsim playing a scenario, and vyxstaged.
# Set BUILD (the build tree with the three programs) and work (a scratch directory for the logs
# and the root) before use. Everything started here is stopped by its process id in sim_stop.
bus_pid="" sim_pid="" daemon_pid="" daemon_status=""

# sim_start SCENARIO [VYXSIM OPTION...]: the bus (configured by $SIM_BUS_CONFIG when set) and
# vyxsim, with every call vyxsim receives in $work/calls.log.
sim_start() {
    local bus config=(--session)
    [ -n "${SIM_BUS_CONFIG:-}" ] && config=(--config-file="$SIM_BUS_CONFIG")
    bus=$(dbus-daemon "${config[@]}" --fork --print-address=1 --print-pid=1) || return 1
    DBUS_SESSION_BUS_ADDRESS=$(sed -n 1p <<<"$bus")
    bus_pid=$(sed -n 2p <<<"$bus")
    VYXSTAGED_ROOT=$work/root
    export DBUS_SESSION_BUS_ADDRESS VYXSTAGED_ROOT
    mkdir -p "$VYXSTAGED_ROOT"
    "$BUILD/vyxsim" --log "$work/calls.log" "${@:2}" "$1" >"$work/vyxsim.log" 2>&1 &
    sim_pid=$!
    for _ in $(seq 100); do
        grep -q ready "$work/vyxsim.log" && return 0
        kill -0 "$sim_pid" 2>/dev/null || break
        sleep 0.1
    done
    cat "$work/vyxsim.log" >&2
    echo "vyxsim did not start" >&2
    return 1
}

# The store's address as vyxsim announced it.
sim_store_url() { sed -n 's/.*ready.* \(http:[^ ]*\).*/\1/p' "$work/vyxsim.log"; }

sim_ctl() { "$BUILD/vyxctl" "$@"; }

# daemon_start [SECONDS [WRAPPER...]]: vyxstaged (under WRAPPER, valgrind say), its diagnostics in
# $work/vyxstaged.log; returns once it answers on the bus.
daemon_start() {
    local limit=${1:-5}
    shift || true
    daemon_status=""
    "$@" "$BUILD/vyxstaged" >>"$work/vyxstaged.log" 2>&1 &
    daemon_pid=$!
    for _ in $(seq $((limit * 10))); do
        sim_ctl -t 1 velto://com.velto.vyxService/demoState '{}' >/dev/null 2>&1 && return 0
        kill -0 "$daemon_pid" 2>/dev/null || break
        sleep 0.1
    done
    echo "vyxstaged did not come up" >&2
    return 1
}

# daemon_wait_exit SECONDS: waits for vyxstaged to end by itself; its status in daemon_status.
daemon_wait_exit() {
    for _ in $(seq $(($1 * 10))); do
        kill -0 "$daemon_pid" 2>/dev/null || break
        sleep 0.1
    done
    kill -0 "$daemon_pid" 2>/dev/null && return 1
    daemon_status=0
    wait "$daemon_pid" || daemon_status=$?
    daemon_pid=""
}

# daemon_stop: SIGINT, the daemon's own way out; waits for it and keeps its status.
daemon_stop() {
    [ -n "$daemon_pid" ] || return 0
    kill -INT "$daemon_pid" 2>/dev/null || true
    daemon_status=0
    wait "$daemon_pid" || daemon_status=$?
    daemon_pid=""
}

# daemon_cpu_ticks: user plus system time of vyxstaged so far, in clock ticks.
daemon_cpu_ticks() {
    local stat
    stat=$(<"/proc/$daemon_pid/stat")
    stat=${stat##*) } # the name in parentheses may hold blanks
    read -r -a f <<<"$stat"
    echo $((f[11] + f[12])) # utime and stime, fields 14 and 15 of the whole line
}

daemon_status_kb() { sed -n "s/^$1:[[:space:]]*\([0-9]*\) kB/\1/p" "/proc/$daemon_pid/status"; }

sim_stop() {
    daemon_stop
    if [ -n "$sim_pid" ]; then
        kill -TERM "$sim_pid" 2>/dev/null || true
        wait "$sim_pid" 2>/dev/null || true
    fi
    if [ -n "$bus_pid" ]; then kill "$bus_pid" 2>/dev/null || true; fi
    sim_pid="" bus_pid=""
}
