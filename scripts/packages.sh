# Debian packages by purpose, and a function that installs what is missing. Sourced by run.sh, test.sh and fuzz.sh.

build_packages="g++ cmake ninja-build ccache pkg-config qtbase5-dev libqt5svg5-dev liblog4cpp5-dev libaravis-dev
    libhwy-dev libusb-1.0-0-dev libxml2-dev zlib1g-dev libexpat1-dev"
demo_packages="xvfb xauth xdotool openbox imagemagick x11-utils fonts-dejavu-core"
test_packages="libgtest-dev libgmock-dev locales iproute2 nftables procps tshark man-db aravis-tools aravis-tools-cli $demo_packages"
fuzz_packages="clang libclang-rt-14-dev llvm"

# install_packages NAME...: asks apt only for what is not installed, and only then needs root or sudo.
install_packages() {
    local missing=() name
    for name in "$@"; do
        [ "$(dpkg-query -W -f '${db:Status-Status}' "$name" 2>/dev/null)" = installed ] || missing+=("$name")
    done
    [ ${#missing[@]} -eq 0 ] && return 0
    local as_root=()
    if [ "$(id -u)" -ne 0 ]; then
        command -v sudo >/dev/null || { echo "Need root or sudo to install: ${missing[*]}" >&2; return 1; }
        as_root=(sudo)
    fi
    echo "Installing: ${missing[*]}"
    "${as_root[@]}" apt-get update -q || return 1
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
        apt-get install -y -q --no-install-recommends "${missing[@]}"
}

