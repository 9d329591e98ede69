# The installed policy on a system-like bus: it loads cleanly, the daemon (root) takes its name,
# an unprivileged user may call, introspect and ping it but neither take its name nor reach
# anything else on it.
. "$(dirname "$0")/lib.sh"

xmllint --noout "$VYX_DESTDIR$VYX_POLICY" || fail "the policy is not well-formed XML"
# Started by hand before there is a bus, it tells the terminal what it tried, and still exits 0.
said=$(script -qec "$VYX_DESTDIR$VYX_DAEMON" /dev/null) || fail "without a bus: status $?: $said"
[[ $said == *"could not register com.velto.vyxService on the system bus at $DBUS_SYSTEM_BUS_ADDRESS: "* ]] ||
    fail "without a bus the terminal heard: $said"
start_bus
start_simulator
"$VYX_DESTDIR$VYX_DAEMON" 2>"$scratch/daemon.log" &
pids+=($!)
wait_for 20 has_owner || fail "the daemon did not take its name"

call() {
    as_nobody gdbus call --system --dest com.velto.vyxService --object-path / --method "$@" 2>&1
}
reply=$(call com.velto.ks.demoState '{}') || fail "nobody's demoState: $reply"
[[ $reply == *'"state":'* ]] || fail "demoState answered: $reply"
reply=$(call com.velto.ks.runStatus '{}') || fail "nobody's runStatus: $reply"
[[ $reply == *'"running":'* ]] || fail "runStatus answered: $reply"
reply=$(call org.freedesktop.DBus.Introspectable.Introspect) || fail "introspection: $reply"
[[ $reply == *demoState* ]] || fail "introspection lists no demoState: $reply"
reply=$(call org.freedesktop.DBus.Peer.Ping) || fail "ping: $reply"
# Up to here nothing was refused: neither these calls nor the daemon's exchanges with the
# simulator's services (their replies and Reply signals included).
complaints=$(bus_complaints)
[ -z "$complaints" ] || fail "the bus complains: $complaints"

reply=$(call org.freedesktop.DBus.Properties.GetAll com.velto.ks) &&
    fail "nobody reached an interface the policy does not open: $reply"
[[ $reply == *AccessDenied* ]] || fail "Properties: $reply"
reply=$(as_nobody gdbus call --system --dest org.freedesktop.DBus --object-path /org/freedesktop/DBus \
    --method org.freedesktop.DBus.RequestName com.velto.vyxService 'uint32 4' 2>&1) &&
    fail "nobody may take the name: $reply"
[[ $reply == *AccessDenied* ]] || fail "RequestName: $reply"

echo "policy holds"
