# Installs into a scratch DESTDIR (kept for the other install tests) and checks that every file
# lands where the configured install directories say, and nothing else is installed.
set -euo pipefail
rm -rf "$VYX_DESTDIR"
DESTDIR="$VYX_DESTDIR" cmake --install "$VYX_BUILD_DIR" >/dev/null

page=$(printf "$VYX_WEBDIR/%s\n" index.html app.js style.css)
pages=("$VYX_MANDIR/man8/vyxstaged.8" "$VYX_MANDIR/man1/vyxctl.1" "$VYX_MANDIR/man1/vyxsim.1")
expected=$(printf '%s\n' "$VYX_DAEMON" "$VYX_BINDIR/vyxctl" "$VYX_BINDIR/vyxsim" "$VYX_UNIT" \
    "$VYX_TMPFILES" "$VYX_POLICY" "$VYX_ACTIVATION" "$page" "${pages[@]}" | sort)
installed=$(cd "$VYX_DESTDIR" && find . ! -type d | sed 's/^\.//' | sort)
if [ "$installed" != "$expected" ]; then
    diff <(echo "$expected") <(echo "$installed") >&2 || true
    echo "FAIL: installed files differ from the expected list (< expected, > installed)" >&2
    exit 1
fi
for program in "$VYX_DAEMON" "$VYX_BINDIR/vyxctl" "$VYX_BINDIR/vyxsim"; do
    [ -x "$VYX_DESTDIR$program" ] || { echo "FAIL: $program is not executable" >&2; exit 1; }
    version=$("$VYX_DESTDIR$program" --version) &&
        [ "$version" = "${program##*/} $VYX_VERSION" ] || { echo "FAIL: $program --version: $version" >&2; exit 1; }
done
# The pages render without a warning and name what they describe, so whatis and apropos find it.
for man_page in "${pages[@]}"; do
    warnings=$(man --warnings -l "$VYX_DESTDIR$man_page" 2>&1 >/dev/null)
    [ -z "$warnings" ] || { echo "FAIL: $man_page: $warnings" >&2; exit 1; }
    lexgrog "$VYX_DESTDIR$man_page" >/dev/null || { echo "FAIL: $man_page has no NAME line" >&2; exit 1; }
done
grep -qx "ExecStart=$VYX_DAEMON" "$VYX_DESTDIR$VYX_UNIT" || { echo "FAIL: ExecStart" >&2; exit 1; }
grep -qx "Exec=$VYX_DAEMON" "$VYX_DESTDIR$VYX_ACTIVATION" || { echo "FAIL: Exec" >&2; exit 1; }

# The simulator is a component of its own, so a device image can leave it out.
DESTDIR="$VYX_DESTDIR.sim" cmake --install "$VYX_BUILD_DIR" --component simulator >/dev/null
simulator=$(cd "$VYX_DESTDIR.sim" && find . ! -type d | sed 's/^\.//' | sort)
rm -rf "$VYX_DESTDIR.sim"
[ "$simulator" = "$(printf '%s\n' "$VYX_BINDIR/vyxsim" "$page" "$VYX_MANDIR/man1/vyxsim.1" | sort)" ] ||
    { echo "FAIL: simulator component: $simulator" >&2; exit 1; }
echo "installed as expected"
