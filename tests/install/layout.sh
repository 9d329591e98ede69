# Installs into a scratch DESTDIR (kept for the other install tests) and checks that every file
# lands where the configured install directories say, and nothing else is installed.
set -euo pipefail
rm -rf "$VYX_DESTDIR"
DESTDIR="$VYX_DESTDIR" cmake --install "$VYX_BUILD_DIR" >/dev/null

page=$(printf "$VYX_WEBDIR/%s\n" index.html app.js style.css)
expected=$(printf '%s\n' "$VYX_DAEMON" "$VYX_BINDIR/vyxctl" "$VYX_BINDIR/vyxsim" "$VYX_UNIT" \
    "$VYX_TMPFILES" "$VYX_POLICY" "$VYX_ACTIVATION" "$page" | sort)
installed=$(cd "$VYX_DESTDIR" && find . ! -type d | sed 's/^\.//' | sort)
if [ "$installed" != "$expected" ]; then
    diff <(echo "$expected") <(echo "$installed") >&2 || true
    echo "FAIL: installed files differ from the expected list (< expected, > installed)" >&2
    exit 1
fi
for program in "$VYX_DAEMON" "$VYX_BINDIR/vyxctl" "$VYX_BINDIR/vyxsim"; do
    [ -x "$VYX_DESTDIR$program" ] || { echo "FAIL: $program is not executable" >&2; exit 1; }
done
grep -qx "ExecStart=$VYX_DAEMON" "$VYX_DESTDIR$VYX_UNIT" || { echo "FAIL: ExecStart" >&2; exit 1; }
grep -qx "Exec=$VYX_DAEMON" "$VYX_DESTDIR$VYX_ACTIVATION" || { echo "FAIL: Exec" >&2; exit 1; }

# The simulator is a component of its own, so a device image can leave it out.
DESTDIR="$VYX_DESTDIR.sim" cmake --install "$VYX_BUILD_DIR" --component simulator >/dev/null
simulator=$(cd "$VYX_DESTDIR.sim" && find . ! -type d | sed 's/^\.//' | sort)
rm -rf "$VYX_DESTDIR.sim"
[ "$simulator" = "$(printf '%s\n' "$VYX_BINDIR/vyxsim" "$page" | sort)" ] ||
    { echo "FAIL: simulator component: $simulator" >&2; exit 1; }
echo "installed as expected"
