# Installs into a scratch DESTDIR (kept for the other install tests) and checks that every file
# lands where the configured install directories say, and nothing else is installed.
. "$(dirname "$0")/lib.sh"
rm -rf "$VYX_DESTDIR"
DESTDIR="$VYX_DESTDIR" cmake --install "$VYX_BUILD_DIR" >/dev/null

page=$(printf "$VYX_WEBDIR/%s\n" index.html app.js style.css)
pages=("$VYX_MANDIR/man8/vyxstaged.8" "$VYX_MANDIR/man1/vyxctl.1" "$VYX_MANDIR/man1/vyxsim.1")
expected=$(printf '%s\n' "$VYX_DAEMON" "$VYX_BINDIR/vyxctl" "$VYX_BINDIR/vyxsim" "$VYX_UNIT" \
    "$VYX_TMPFILES" "$VYX_POLICY" "$VYX_ACTIVATION" "$page" "${pages[@]}" | sort)
installed=$(cd "$VYX_DESTDIR" && find . ! -type d | sed 's/^\.//' | sort)
[ "$installed" = "$expected" ] || fail "installed files differ from the expected list" \
    "(< expected, > installed):" $'\n'"$(diff <(echo "$expected") <(echo "$installed"))"
for program in "$VYX_DAEMON" "$VYX_BINDIR/vyxctl" "$VYX_BINDIR/vyxsim"; do
    [ -x "$VYX_DESTDIR$program" ] || fail "$program is not executable"
    version=$("$VYX_DESTDIR$program" --version) &&
        [ "$version" = "${program##*/} $VYX_VERSION" ] || fail "$program --version: $version"
done
# The pages render without a warning and name what they describe, so whatis and apropos find it.
for man_page in "${pages[@]}"; do
    warnings=$(man --warnings -l "$VYX_DESTDIR$man_page" 2>&1 >/dev/null)
    [ -z "$warnings" ] || fail "$man_page: $warnings"
    lexgrog "$VYX_DESTDIR$man_page" >/dev/null || fail "$man_page has no NAME line"
done
grep -qx "ExecStart=$VYX_DAEMON" "$VYX_DESTDIR$VYX_UNIT" || fail "ExecStart"
grep -qx "Exec=$VYX_DAEMON" "$VYX_DESTDIR$VYX_ACTIVATION" || fail "Exec"

# The simulator is a component of its own, so a device image can leave it out.
DESTDIR="$scratch/sim" cmake --install "$VYX_BUILD_DIR" --component simulator >/dev/null
simulator=$(cd "$scratch/sim" && find . ! -type d | sed 's/^\.//' | sort)
[ "$simulator" = "$(printf '%s\n' "$VYX_BINDIR/vyxsim" "$page" "$VYX_MANDIR/man1/vyxsim.1" | sort)" ] ||
    fail "simulator component: $simulator"
echo "installed as expected"
