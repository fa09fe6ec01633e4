# A GigE Vision software camera on loopback, for people without a camera at hand. Sourced by run.sh.

software_camera_pid=

# True when discovery finds any camera.
camera_answers() {
    timeout 10 build/release/bin/orvcam list >/dev/null 2>&1
}

# start_software_camera PROGRAM [OPTION...]: returns when it says that it is there.
start_software_camera() {
    local said
    said=$(mktemp)
    "$@" >"$said" 2>&1 &
    software_camera_pid=$!
    for _ in $(seq 100); do
        grep -q ' at ' "$said" && break
        kill -0 "$software_camera_pid" 2>/dev/null || break
        sleep 0.1
    done
    if ! grep -q ' at ' "$said"; then
        echo "The software camera did not start: $(cat "$said")" >&2
        rm -f "$said"
        return 1
    fi
    rm -f "$said"
}

stop_software_camera() {
    if [ -n "$software_camera_pid" ]; then
        kill "$software_camera_pid" 2>/dev/null || true # it may have ended already
    fi
    software_camera_pid=
}
