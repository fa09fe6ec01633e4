#!/usr/bin/env bash
# Uses the viewer the way a person would, on a display of its own, and leaves a screenshot of each step.
#   demo.sh BIN_DIR OUT_DIR [PID [SERIAL]]   the software camera, which is ended to show how its loss is told; with
#                                            its serial number it is the one that is chosen among several
set -euo pipefail
bin=$1
out=$2
camera_pid=${3:-}
camera_serial=${4:-}

work=$(mktemp -d)
pids=()
cleanup() {
    kill "${pids[@]}" 2>/dev/null || true # the viewer, for one, has normally ended by itself
    wait || true
    rm -rf "$work"
}
trap cleanup EXIT

# A display nobody else uses; the server tells which one it took.
Xvfb -displayfd 3 -screen 0 1366x768x24 -nolisten tcp 3>"$work/display" 2>"$work/xvfb.log" &
pids+=($!)
for _ in $(seq 100); do [ -s "$work/display" ] && break; sleep 0.1; done
DISPLAY=:$(cat "$work/display")
export DISPLAY
# Settings and log of this run lie beside the pictures; it starts like a first run.
rm -rf "$out/config" "$out/state"
export XDG_CONFIG_HOME=$out/config XDG_STATE_HOME=$out/state
unset QT_QPA_PLATFORM
if [ -n "$camera_serial" ]; then
    mkdir -p "$out/config/Zelkor"
    printf '[CameraSelector]\nvendor=OrvPlayer\nmodel=OrvSim\nserial=%s\n' "$camera_serial" >"$out/config/Zelkor/OrvPlayer.conf"
fi
openbox >/dev/null 2>&1 &
pids+=($!)

"$bin/OrvPlayer" >"$out/output.txt" 2>&1 &
viewer=$!
pids+=("$viewer")

fail() {
    import -window root "$out/failed.png" || true
    xwininfo -root -tree >"$out/failed.txt" 2>&1 || true
    for task in "/proc/$viewer/task"/*; do
        echo "$(cat "$task/comm" "$task/wchan" 2>/dev/null | tr '\n' ' ')" >>"$out/failed.txt"
    done
    echo "demo: $1" >&2
    exit 1
}
# until_true SECONDS WHAT COMMAND...: repeats the command until it succeeds.
until_true() {
    local end=$(($(date +%s) + $1)) what=$2
    shift 2
    until "$@" >/dev/null 2>&1; do
        kill -0 "$viewer" 2>/dev/null || fail "the viewer ended while waiting for: $what"
        [ "$(date +%s)" -lt $end ] || fail "waited in vain for: $what"
        sleep 0.2
    done
}
window_called() { xdotool search --onlyvisible --name "$1"; }
shot() { import -window root "$out/$1.png" && echo "demo: $1"; }
picture_moves() {
    import -window root -crop 400x400+483+200 +repage "$work/a.png"
    sleep 0.3
    import -window root -crop 400x400+483+200 +repage "$work/b.png"
    [ "$(compare -metric AE "$work/a.png" "$work/b.png" null: 2>&1)" != 0 ]
}
picture_rests() { ! picture_moves; }
selector_open() { window_called '^Camera selection$'; }
# Return chooses the camera as soon as it is listed, which changes the picture; if it was listed from the first, it does
# not, so that after some tries Return is pressed anyway.
tries=0
choose_camera() {
    selector_open || return 0
    tries=$((tries + 1))
    import -window root "$work/selector.png"
    [ $tries != 1 ] || cp "$work/selector.png" "$work/selector-first.png"
    if [ $tries -lt 6 ] && [ "$(compare -metric AE -extract 860x300+245+190 "$work/selector-first.png" \
        "$work/selector.png" null: 2>&1)" = 0 ]; then
        sleep 0.3
        return 1
    fi
    cp "$work/selector.png" "$out/2-selector.png"
    xdotool key Return
    sleep 0.5
    ! selector_open
}

until_true 30 'the main window' window_called 'OrvPlayer - Camera is not connected'
main=$(xdotool search --onlyvisible --name 'OrvPlayer - ' | head -1)
xdotool windowsize --sync "$main" 1200 700 windowmove "$main" 60 30 windowfocus "$main"
shot 1-started

xdotool key --clearmodifiers ctrl+k
until_true 20 'the camera selector' selector_open
until_true 20 'the camera in the selector' choose_camera
until_true 20 'the connected camera' window_called 'OrvPlayer -  '
echo 'demo: 2-selector'

xdotool key --clearmodifiers F5
until_true 20 'moving pictures' picture_moves
xdotool mousemove 660 380
shot 3-live-fit
xdotool key --clearmodifiers ctrl+1
for _ in 1 2 3 4; do xdotool mousemove 660 380 keydown ctrl click 4 keyup ctrl; done
sleep 0.5
shot 4-live-zoomed
xdotool key --clearmodifiers ctrl+0
xdotool key --clearmodifiers shift+F5
until_true 10 'the stopped picture' picture_rests
shot 5-stopped

xdotool key --clearmodifiers F5
until_true 20 'moving pictures again' picture_moves
if [ -n "$camera_pid" ]; then
    kill "$camera_pid"
    until_true 20 'the message of the lost camera' window_called '^OrvPlayer$'
    sleep 0.5
    shot 6-camera-lost
    xdotool key Return
    until_true 10 'the disconnected window' window_called 'OrvPlayer - Camera is not connected'
fi
xdotool windowfocus "$main" key --clearmodifiers ctrl+q
for _ in $(seq 50); do kill -0 "$viewer" 2>/dev/null || break; sleep 0.2; done
kill -0 "$viewer" 2>/dev/null && fail 'the viewer did not close'
wait "$viewer" || fail "the viewer ended with status $?"
echo "demo: done, pictures in $out"
