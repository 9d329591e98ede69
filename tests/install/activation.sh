# The installed activation file: a call to the name starts the daemon and is answered; once the
# daemon has ended itself for being idle, the next call starts a new one, answered as well.
. "$(dirname "$0")/lib.sh"

mkdir "$scratch/services"
sed "s|^Exec=|Exec=$VYX_DESTDIR|" "$VYX_DESTDIR$VYX_ACTIVATION" \
    >"$scratch/services/com.velto.vyxService.service"
start_bus "$scratch/services"
start_simulator
has_owner && fail "the daemon runs before anyone called it"

# vyxctl, like every caller through the daemon's bus layer, never starts a service (a service
# that is not running is an answer of its own there), so the call comes from gdbus.
demo_state() {
    local reply
    reply=$(gdbus call --system --timeout 20 --dest com.velto.vyxService --object-path / \
        --method com.velto.ks.demoState '{}' 2>&1) || fail "demoState: $reply"
    [[ $reply == *'"state":'* ]] || fail "demoState answered: $reply"
}
daemon_pid() {
    bus GetConnectionUnixProcessID com.velto.vyxService | sed 's/^(uint32 \([0-9]*\),)$/\1/'
}

demo_state
first=$(daemon_pid)
# Ten idle seconds end it; the margin covers a slow, sanitised build.
wait_for 25 not kill -0 "$first" 2>/dev/null || fail "the daemon did not exit when idle"
wait_for 5 not has_owner || fail "the name outlived the daemon"

demo_state
second=$(daemon_pid)
[ "$second" != "$first" ] || fail "the second call did not start a new daemon"
kill -INT "$second"
wait_for 10 not kill -0 "$second" 2>/dev/null || fail "the daemon ignored SIGINT"

complaints=$(bus_complaints)
[ -z "$complaints" ] || fail "the bus complains: $complaints"
echo "activated twice: pids $first and $second"
