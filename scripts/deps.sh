# Sourced by the scripts: installs the Debian packages named in $@ that are
# missing, as root or through sudo. The lists below are everything that the
# build, the tests, the package and the benchmarks need on a minimal Debian 12.
#
# Installing lighttpd, nginx, fcgiwrap or varnish would start Debian's own
# service of it (lighttpd and nginx on port 80, varnish on 6081). While
# apt-get runs, a policy-rc.d that refuses every start is in place, unless the machine has one already; it is
# removed afterwards, whatever happened. Services already running are left
# alone: the same policy keeps apt-get from restarting them.
install_missing() {
    local missing=() p sudo="" installed
    installed=$'\n'$(dpkg-query -W -f='${Status} ${Package}\n' 2> /dev/null | sed -n 's/^install ok installed //p')$'\n'
    for p in "$@"; do [[ $installed == *$'\n'$p$'\n'* ]] || missing+=("$p"); done
    [ ${#missing[@]} -eq 0 ] && return 0
    echo "Installing: ${missing[*]}"
    if [ "$(id -u)" -ne 0 ]; then
        command -v sudo > /dev/null ||
            { echo "Not root and no sudo: as root, apt-get install ${missing[*]}" >&2; return 1; }
        sudo=sudo
    fi
    (
        policy=/usr/sbin/policy-rc.d
        # A policy left by a run that was killed is ours too.
        if [ ! -e "$policy" ] || grep -q '^# Made by scripts/deps.sh' "$policy"; then
            trap '$sudo rm -f "$policy"' EXIT
            trap 'exit 1' HUP INT TERM
            printf '#!/bin/sh\n# Made by scripts/deps.sh while it installs packages.\nexit 101\n' |
                $sudo tee "$policy" > /dev/null && $sudo chmod 755 "$policy" || exit 1
        fi
        $sudo apt-get update -qq &&
            $sudo env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" > /dev/null
    )
}

# What building the program (libfcgi-dev for its FastCGI mode), the demo and
# bench/run need; openssl and lighttpd-mod-openssl are for the https origins
# of bench/run, the deployment tests and the policy table.
BUILD_PACKAGES=(build-essential cmake pkg-config libssl-dev libfcgi-dev openssl curl lighttpd
    lighttpd-mod-openssl)
# What the tests and the package need on top: ninja-build for the builds of
# scripts/test and scripts/fuzz, file for cpack's DEB generator, dpkg-dev and
# binutils for the package's computed dependencies, man-db for the manual
# pages, iproute2 for network namespaces, libfcgi-bin (cgi-fcgi) and
# spawn-fcgi for the FastCGI runs (it also starts the responder for nginx and
# Apache in the deployment tests), libssl3 for https at run time,
# varnish for the caching front, systemd for systemd-analyze (nothing here
# boots it), python3 for the slow origin that the FastCGI tests fetch from, chromium
# (headless) for the demo page's browser test, nodejs, npm, python3-venv, python3-setuptools
# and python3-wheel for the JS and Python clients' test.
TEST_PACKAGES=(ninja-build libgtest-dev libbenchmark-dev locales procps iproute2 file libfcgi-bin spawn-fcgi python3
    libssl3 util-linux varnish systemd
    apache2-bin nginx fcgiwrap dpkg-dev binutils man-db groff-base
    valgrind clang-14 libclang-rt-14-dev chromium
    nodejs python3-venv python3-setuptools python3-wheel)
# Some builds of nodejs carry their own npm, which Debian's npm package would conflict with.
command -v npm > /dev/null || TEST_PACKAGES+=(npm)
# What bench/run needs on top of the build packages.
BENCH_PACKAGES=(libbenchmark-dev wrk python3)
