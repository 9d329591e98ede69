# Installs the Debian packages a command needs, only when some are missing.
# Usage: ensure_packages pkg...
ensure_packages() {
    local missing=()
    local pkg
    for pkg in "$@"; do
        dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q "install ok installed" ||
            missing+=("$pkg")
    done
    if [ "${#missing[@]}" -eq 0 ]; then
        return 0
    fi
    echo "Installing: ${missing[*]}"
    if [ "$(id -u)" -ne 0 ]; then
        echo "error: missing packages and not root: ${missing[*]}" >&2
        return 1
    fi
    export DEBIAN_FRONTEND=noninteractive
    apt-get update -qq
    apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
}

# What building and running the daemon, the simulator and the client takes.
VYX_BUILD_PACKAGES=(cmake make g++ pkg-config libglib2.0-dev libglib2.0-bin libcurl4-openssl-dev
                    libsoup-3.0-dev dbus-daemon)
# What the test suite adds.
VYX_TEST_PACKAGES=(libgtest-dev libgmock-dev googletest libbenchmark-dev)
# What the browser test of the simulator's page adds; without them that test is skipped.
VYX_BROWSER_PACKAGES=(chromium chromium-driver python3-selenium)
# What fuzzing adds.
VYX_FUZZ_PACKAGES=(clang libclang-rt-14-dev)
# What the installed-service tests add: systemd-analyze (its unit check looks for dbus.socket,
# which dbus-system-bus-common brings) and xmllint.
VYX_TEST_PACKAGES+=(systemd dbus-system-bus-common libxml2-utils)
# The manual pages' check: man and lexgrog, and groff to render.
VYX_TEST_PACKAGES+=(man-db groff-base)
# What the whole-run benchmark adds: its scenario generator and record tally, the store replay.
VYX_BENCH_PACKAGES=(python3 curl)
# What scripts/test --valgrind adds.
VYX_VALGRIND_PACKAGES=(valgrind)
