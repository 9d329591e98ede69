# Shared by the install tests: a scratch directory and the processes started here, both gone on
# exit, and a bus set up the way a distribution sets up its system bus.
set -euo pipefail

scratch=$(mktemp -d)
# The unprivileged callers must reach the bus socket inside.
chmod 755 "$scratch"
pids=()
cleanup() {
    kill "${pids[@]}" 2>/dev/null || true
    wait || true
    rm -rf "$scratch"
}
trap cleanup EXIT

# What went wrong, then everything the bus (and the daemons it started), the daemon and the
# simulator said.
fail() {
    echo "FAIL: $*" >&2
    local log
    for log in bus daemon sim; do
        [ -s "$scratch/$log.log" ] && printf -- '--- %s.log\n%s\n' "$log" "$(cat "$scratch/$log.log")" >&2
    done
    exit 1
}

# Waits up to $1 seconds for the command after it to succeed.
wait_for() {
    local deadline=$((SECONDS + $1))
    shift
    until "$@"; do
        [ "$SECONDS" -lt "$deadline" ] || return 1
        sleep 0.2
    done
}

# Every client here, the daemon included, takes the bus from DBUS_SYSTEM_BUS_ADDRESS, as the
# system bus gives it to the services it starts.
unset DBUS_SESSION_BUS_ADDRESS
export DBUS_SYSTEM_BUS_ADDRESS="unix:path=$scratch/bus"
export VYXSTAGED_ROOT="$scratch/device"

bus() {
    gdbus call --system --dest org.freedesktop.DBus --object-path /org/freedesktop/DBus \
        --method "org.freedesktop.DBus.$1" "${@:2}"
}
has_owner() {
    bus NameHasOwner com.velto.vyxService | grep -q true
}
not() {
    ! "$@"
}
as_nobody() {
    setpriv --reuid=nobody --regid=nogroup --clear-groups -- "$@"
}

# The default policy of a distribution's system bus, then the installed policy. The simulator
# (as user "daemon") stands in for the platform's services, whose own policies would let it
# take their names and let the daemon (root) call them. $1: a directory of activation files.
start_bus() {
    local servicedir=${1:+<servicedir>$1</servicedir>}
    cat >"$scratch/bus.conf" <<CONF
<busconfig>
  <type>system</type>
  <listen>unix:path=$scratch/bus</listen>
  <auth>EXTERNAL</auth>
  $servicedir
  <policy context="default">
    <allow user="*"/>
    <deny own="*"/>
    <deny send_type="method_call"/>
    <allow send_type="signal"/>
    <allow send_requested_reply="true" send_type="method_return"/>
    <allow send_requested_reply="true" send_type="error"/>
    <allow receive_type="method_call"/>
    <allow receive_type="method_return"/>
    <allow receive_type="error"/>
    <allow receive_type="signal"/>
    <allow send_destination="org.freedesktop.DBus" send_interface="org.freedesktop.DBus"/>
    <allow send_destination="org.freedesktop.DBus"
           send_interface="org.freedesktop.DBus.Introspectable"/>
  </policy>
  <policy user="daemon"><allow own="*"/></policy>
  <policy user="root"><allow send_type="method_call"/></policy>
  <include>$VYX_DESTDIR$VYX_POLICY</include>
</busconfig>
CONF
    dbus-daemon --config-file="$scratch/bus.conf" --nofork --nopidfile 2>"$scratch/bus.log" &
    pids+=($!)
    wait_for 10 test -S "$scratch/bus" || fail "the bus did not start"
}

# Raising the descriptor limit needs a capability a container may lack; anything else the bus
# says is a fault, as is a sanitizer report of a daemon it started (which writes to its log).
bus_complaints() {
    grep -e '^dbus-daemon\[' -e 'Sanitizer' -e 'runtime error' "$scratch/bus.log" |
        grep -v -e 'Failed to set fd limit' -e 'Activating service name=' \
            -e 'Successfully activated service' || true
}

# User "daemon" may not see into the checkout or the build tree at all (a clone in root's home or
# in a mktemp -d is private to root), so the simulator and its scenario are run from copies here.
start_simulator() {
    mkdir -p "$VYXSTAGED_ROOT"
    chown daemon "$VYXSTAGED_ROOT"
    cp "$VYX_DESTDIR$VYX_BINDIR/vyxsim" "$VYX_SOURCE_DIR/examples/scenarios/fresh-device.json" \
        "$scratch/"
    setpriv --reuid=daemon --regid=daemon --clear-groups -- "$scratch/vyxsim" \
        "$scratch/fresh-device.json" >"$scratch/sim.log" 2>&1 &
    pids+=($!)
    wait_for 20 grep -qs "ready" "$scratch/sim.log" || fail "vyxsim did not start"
}
