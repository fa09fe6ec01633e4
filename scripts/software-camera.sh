# A GigE Vision software camera on loopback, for people without a camera at hand. Sourced by run.sh.

software_camera_pid=

# True when discovery finds any camera.
camera_answers() {
    timeout 10 arv-tool-0.8 2>/dev/null | grep -q '('
}

start_software_camera() {
    arv-fake-gv-camera-0.8 -i 127.0.0.1 >/dev/null 2>&1 &
    software_camera_pid=$!
    for _ in $(seq 20); do
        camera_answers && return 0
        kill -0 "$software_camera_pid" 2>/dev/null || break
    done
    echo "The software camera did not start." >&2
    return 1
}

stop_software_camera() {
    if [ -n "$software_camera_pid" ]; then
        kill "$software_camera_pid" 2>/dev/null || true # it may have ended already
    fi
    software_camera_pid=
}
