# The unit passes systemd's own checks, and its sandbox keeps the exposure score at 2.0 or less.
. "$(dirname "$0")/lib.sh"

# verify wants the program to exist, so it checks a copy pointing into the DESTDIR.
sed "s|^ExecStart=|ExecStart=$VYX_DESTDIR|" "$VYX_DESTDIR$VYX_UNIT" >"$scratch/vyxstaged.service"
systemd-analyze verify "$scratch/vyxstaged.service" 2>"$scratch/verify.log" ||
    fail "systemd-analyze verify: $(cat "$scratch/verify.log")"
[ ! -s "$scratch/verify.log" ] || fail "systemd-analyze verify warns: $(cat "$scratch/verify.log")"

systemd-analyze security --offline=yes "$scratch/vyxstaged.service" >"$scratch/security.log" 2>&1 ||
    fail "systemd-analyze security: $(cat "$scratch/security.log")"
score=$(sed -n 's/.*Overall exposure level for vyxstaged.service: \([0-9.]*\).*/\1/p' "$scratch/security.log")
[ -n "$score" ] || fail "no exposure level in: $(cat "$scratch/security.log")"
awk -v s="$score" 'BEGIN { exit !(s <= 2.0) }' || fail "exposure $score is above 2.0"
echo "exposure level $score"
