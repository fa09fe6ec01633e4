#!/usr/bin/env bash
# Installs what is missing, builds and starts the viewer.
#   ./run.sh               start it; a software camera is started on loopback when no camera answers
#   ./run.sh --build-only  install and build, start nothing
#   ./run.sh --demo DIR    use the viewer without a display and leave screenshots in DIR
set -euo pipefail
cd "$(dirname "$0")"
. scripts/packages.sh

mode=run
demo_dir=
case "${1:-}" in
    '') ;;
    --build-only) mode=build ;;
    --demo)
        mode=demo
        [ -n "${2:-}" ] || { echo "usage: ./run.sh --demo DIR" >&2; exit 2; }
        mkdir -p "$2"
        demo_dir=$(cd "$2" && pwd)
        ;;
    *) echo "usage: ./run.sh [--build-only | --demo DIR]" >&2; exit 2 ;;
esac

packages="$build_packages"
[ $mode = demo ] && packages="$packages $demo_packages"
# shellcheck disable=SC2086
install_packages $packages
# The tests are built by test.sh; a viewer does not need their libraries.
cmake --preset release -DORV_BUILD_TESTS=OFF >/dev/null
cmake --build --preset release
[ $mode = build ] && exit 0

. scripts/software-camera.sh
trap stop_software_camera EXIT
# In colour, so that the status bar shows what is under the mouse: raw mosaics have no value of their own there.
camera=(build/release/bin/orvsim --format RGB8)
if [ $mode = demo ]; then
    start_software_camera "${camera[@]}" --serial DEMO0001
    bash scripts/demo.sh build/release/bin "$demo_dir" "$software_camera_pid" DEMO0001
else
    # Without it the viewer says itself that there is no camera.
    camera_answers || start_software_camera "${camera[@]}" || true
    build/release/bin/OrvPlayer
fi
