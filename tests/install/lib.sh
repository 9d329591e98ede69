# Shared by the install tests: a scratch directory and the processes started here, gone on exit.
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

# What went wrong, then everything the bus (and the daemons it started) and the simulator said.
fail() {
    echo "FAIL: $*" >&2
    local log
    for log in bus sim; do
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
