# The installed policy and activation file on a system-like bus. The policy loads cleanly; a call
# to the name starts the daemon (root), which takes its name; an unprivileged user may call,
# introspect and ping it but neither take its name nor reach anything else on it. Once the daemon
# has ended itself for being idle, the next call starts a new one, answered as well.
. "$(dirname "$0")/lib.sh"

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

# Raising the descriptor limit needs a capability a container may lack; anything else the bus
# says is a fault, as is a sanitizer report of a daemon it started (which writes to its log).
bus_complaints() {
    grep -e '^dbus-daemon\[' -e 'Sanitizer' -e 'runtime error' "$scratch/bus.log" |
        grep -v -e 'Failed to set fd limit' -e 'Activating service name=' \
            -e 'Successfully activated service' || true
}

xmllint --noout "$VYX_DESTDIR$VYX_POLICY" || fail "the policy is not well-formed XML"
# Started by hand before there is a bus, it tells the terminal what it tried, and still exits 0.
said=$(script -qec "$VYX_DESTDIR$VYX_DAEMON" /dev/null) || fail "without a bus: status $?: $said"
[[ $said == *"could not register com.velto.vyxService on the system bus at $DBUS_SYSTEM_BUS_ADDRESS: "* ]] ||
    fail "without a bus the terminal heard: $said"
mkdir "$scratch/services"
sed "s|^Exec=|Exec=$VYX_DESTDIR|" "$VYX_DESTDIR$VYX_ACTIVATION" \
    >"$scratch/services/com.velto.vyxService.service"
# The default policy of a distribution's system bus, then the installed policy. The simulator
# (as user "daemon") stands in for the platform's services, whose own policies would let it
# take their names and let the daemon (root) call them.
cat >"$scratch/bus.conf" <<CONF
<busconfig>
  <type>system</type>
  <listen>unix:path=$scratch/bus</listen>
  <auth>EXTERNAL</auth>
  <servicedir>$scratch/services</servicedir>
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

# User "daemon" may not see into the checkout or the build tree at all (a clone in root's home or
# in a mktemp -d is private to root), so the simulator and its scenario are run from copies here.
mkdir -p "$VYXSTAGED_ROOT"
chown daemon "$VYXSTAGED_ROOT"
cp "$VYX_DESTDIR$VYX_BINDIR/vyxsim" "$VYX_SOURCE_DIR/examples/scenarios/fresh-device.json" \
    "$scratch/"
setpriv --reuid=daemon --regid=daemon --clear-groups -- "$scratch/vyxsim" \
    "$scratch/fresh-device.json" >"$scratch/sim.log" 2>&1 &
pids+=($!)
wait_for 20 grep -qs "ready" "$scratch/sim.log" || fail "vyxsim did not start"
has_owner && fail "the daemon runs before anyone called it"

# $1: who calls ("" or as_nobody); $2: what the reply must hold; then the method and its arguments.
# vyxctl, like every caller through the daemon's bus layer, never starts a service (a service
# that is not running is an answer of its own there), so the calls come from gdbus.
call() {
    reply=$($1 gdbus call --system --timeout 20 --dest com.velto.vyxService --object-path / \
        --method "${@:3}" 2>&1) || fail "$3: $reply"
    [[ $reply == *"$2"* ]] || fail "$3 answered: $reply"
}
daemon_pid() {
    bus GetConnectionUnixProcessID com.velto.vyxService | sed 's/^(uint32 \([0-9]*\),)$/\1/'
}

call "" '"state":' com.velto.ks.demoState '{}'
first=$(daemon_pid)
call as_nobody '"state":' com.velto.ks.demoState '{}'
call as_nobody '"running":' com.velto.ks.runStatus '{}'
call as_nobody demoState org.freedesktop.DBus.Introspectable.Introspect
call as_nobody "" org.freedesktop.DBus.Peer.Ping
# Up to here nothing was refused: neither these calls nor the daemon's exchanges with the
# simulator's services (their replies and Reply signals included).
complaints=$(bus_complaints)
[ -z "$complaints" ] || fail "the bus complains: $complaints"
reply=$(as_nobody gdbus call --system --dest com.velto.vyxService --object-path / \
    --method org.freedesktop.DBus.Properties.GetAll com.velto.ks 2>&1) &&
    fail "nobody reached an interface the policy does not open: $reply"
[[ $reply == *AccessDenied* ]] || fail "Properties: $reply"
reply=$(as_nobody gdbus call --system --dest org.freedesktop.DBus --object-path /org/freedesktop/DBus \
    --method org.freedesktop.DBus.RequestName com.velto.vyxService 'uint32 4' 2>&1) &&
    fail "nobody may take the name: $reply"
[[ $reply == *AccessDenied* ]] || fail "RequestName: $reply"
refused=$(bus_complaints)

# Ten idle seconds end it; the margin covers a slow, sanitised build.
wait_for 25 not kill -0 "$first" 2>/dev/null || fail "the daemon did not exit when idle"
wait_for 5 not has_owner || fail "the name outlived the daemon"
call "" '"state":' com.velto.ks.demoState '{}'
second=$(daemon_pid)
[ "$second" != "$first" ] || fail "the second call did not start a new daemon"
kill -INT "$second"
wait_for 10 not kill -0 "$second" 2>/dev/null || fail "the daemon ignored SIGINT"
# Nothing more since the refusals above, a sanitizer's report at either daemon's end included.
complaints=$(bus_complaints)
[ "$complaints" = "$refused" ] || fail "the bus complains: $complaints"
echo "policy holds; activated twice: pids $first and $second"
