# Sourced by the scripts: installs the Debian packages named in $@ that are
# missing. Runs apt-get as root, or through sudo when that is available.
install_missing() {
    local missing=()
    for p in "$@"; do
        dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
    done
    [ ${#missing[@]} -eq 0 ] && return 0
    echo "Installing: ${missing[*]}"
    local sudo=""
    [ "$(id -u)" -ne 0 ] && sudo="sudo"
    $sudo apt-get update -qq
    DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
}

# What building and running the program needs.
BUILD_PACKAGES=(build-essential cmake pkg-config libssl-dev openssl curl lighttpd lighttpd-mod-openssl)
# What the test suite needs on top.
TEST_PACKAGES=(libgtest-dev libbenchmark-dev locales procps
    apache2-bin nginx fcgiwrap dpkg-dev binutils man-db groff-base
    valgrind clang-14 libclang-rt-14-dev)
# What bench/run needs on top of the build packages.
BENCH_PACKAGES=(libbenchmark-dev wrk)
