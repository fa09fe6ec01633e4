#!/usr/bin/env bash
# The program itself on a display, used through mouse and keyboard with a camera that others wrote, under a locale that
# writes numbers with a comma.
#   program.sh SOURCE_DIR BIN_DIR OUT_DIR
set -euo pipefail

# The camera always takes the same port: a network of our own, or else our turn on the common one.
if [ -z "${ORV_PROGRAM_TEST_NETWORK:-}" ]; then
    for way_in in '--net' '--map-root-user --net'; do # root needs no user namespace, and in a chroot may have none
        # shellcheck disable=SC2086
        if unshare $way_in ip link set lo up 2>/dev/null; then
            ORV_PROGRAM_TEST_NETWORK=private exec unshare $way_in bash "$0" "$@"
        fi
    done
    ORV_PROGRAM_TEST_NETWORK=shared exec flock "${TMPDIR:-/tmp}/orv-foreign-camera.lock" bash "$0" "$@"
fi
[ "$ORV_PROGRAM_TEST_NETWORK" = shared ] || ip link set lo up

source=$1
bin=$2
out=$3
rm -rf "$out"
mkdir -p "$out/locale"
localedef -i de_DE -f UTF-8 "$out/locale/de_DE.UTF-8"
comma_locale=(env "LOCPATH=$out/locale" LC_ALL=de_DE.UTF-8)
[ "$("${comma_locale[@]}" printf '%.1f' 1,5)" = 1,5 ] || { echo "no locale with a decimal comma" >&2; exit 1; }

. "$source/scripts/software-camera.sh"
trap stop_software_camera EXIT
use_the_program() {
    start_software_camera "$bin/orvsim"
    "${comma_locale[@]}" bash "$source/scripts/demo.sh" "$bin" "$out" "$software_camera_pid"
}
if ! use_the_program; then
    # Seen once: a display that stayed empty on a busy machine. What it looked like is kept beside the pictures.
    echo "program test: FIRST ATTEMPT FAILED, trying once more"
    stop_software_camera
    mkdir -p "$out/first-attempt"
    mv "$out"/*.png "$out"/*.txt "$out/first-attempt/" 2>/dev/null || true
    use_the_program
fi

fail() {
    echo "program test: $1" >&2
    exit 1
}
# The camera has no user defined name: nothing stands between the two strokes.
settings=$out/config/Zelkor/Session__OrvSim.conf
grep -qE '^FpsAvg=[0-9]+\.[0-9]+$' "$settings" || fail "no frame rate with a decimal point in the settings"
grep -q '^wndGeometry=' "$out/config/Zelkor/OrvPlayer.conf" || fail "the window's place is not remembered"
grep -q 'Grabbing thread stopped' "$out/state/OrvPlayer/orvplayer.log" || fail "no milestone in the log"
grep -q 'PropertyConfigurator::configure succeeded!' "$out/output.txt" || fail "the log was not configured"
echo "program test: passed"
