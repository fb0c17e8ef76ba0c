# The scene for a try-out on one computer: sound devices, the translation service and a screen, all
# private, all ended with the script. Sourced after common.sh.

bin=$root/build/linux
out=$root/out
speech=/usr/share/pocketsphinx/test/data/librivox
mkdir -p "$out"

# ---- What is started here is ended here ----------------------------------------------------------

private=$(mktemp -d)
started=()
finish() { # [CODE]
    local code=${1:-$?}
    trap - EXIT
    local i
    for ((i = ${#started[@]} - 1; i >= 0; --i)); do
        kill "${started[i]}" 2>/dev/null || true
        wait "${started[i]}" 2>/dev/null || true
    done
    rm -rf "$private"
    exit "$code"
}
trap finish EXIT
trap 'exit 130' INT TERM

# wait_until SECONDS COMMAND...: until the command succeeds; fails when it does not in time.
wait_until() {
    local tries
    for ((tries = $1 * 10; tries > 0; --tries)); do
        "${@:2}" >/dev/null 2>&1 && return
        sleep 0.1
    done
    return 1
}

# wait_for WHAT FILE TEXT PROCESS: until the text stands in the file that the process writes.
wait_for() {
    local tries
    for ((tries = 300; tries > 0; --tries)); do
        grep -q -- "$3" "$2" 2>/dev/null && return
        kill -0 "$4" 2>/dev/null || break
        sleep 0.1
    done
    cat "$2" >&2
    fail "$1 did not start"
}

# ---- Sound ---------------------------------------------------------------------------------------

# A sound server with a virtual loudspeaker and a virtual microphone, which plays what is sent to
# the loudspeaker "voice".
start_sound() {
    say "Starting a private sound server with a virtual loudspeaker and a virtual microphone"
    cat >"$private/devices" <<EOF
load-module module-null-sink sink_name=speaker rate=48000 channels=2
load-module module-null-sink sink_name=voice rate=48000 channels=2
load-module module-remap-source source_name=mic master=voice.monitor
set-default-sink speaker
set-default-source mic
load-module module-native-protocol-unix auth-anonymous=1 socket=$private/sound
EOF
    export PULSE_SERVER=unix:$private/sound
    env HOME="$private" XDG_RUNTIME_DIR="$private" XDG_CONFIG_HOME="$private" \
        DBUS_SESSION_BUS_ADDRESS=unix:path="$private/none" \
        pulseaudio -n --daemonize=no --exit-idle-time=-1 --use-pid-file=no --realtime=no \
        --high-priority=no -F "$private/devices" >"$private/sound.log" 2>&1 &
    started+=("$!")
    wait_until 10 pactl info || { cat "$private/sound.log" >&2; fail "no sound server"; }
}

# make_straight FILE: the recorded sentences one after the other, as the recogniser takes them, with a
# second of silence after each, as between the played ones.
make_straight() {
    local recording
    for recording in "$speech"/*.wav; do
        tail -c +45 "$recording" # without the 44 bytes of its header
        head -c 32000 /dev/zero
    done >"$1"
}

# ---- Service -------------------------------------------------------------------------------------

# start_service FOLDER KEY: on port 443 of this computer, with a certificate and accounts in the
# folder, which are made where they are missing.
start_service() {
    local service=$bin/service/kelvarin-service
    if [ "$(id -u)" -ne 0 ] && ! getcap "$service" | grep -q cap_net_bind_service; then
        say "Allowing the service to listen on port 443"
        as_root setcap cap_net_bind_service=+ep "$service"
    fi
    mkdir -p "$1"
    if [ ! -f "$1/accounts.db" ]; then
        say "Making a certificate and an access key for the translation service"
        "$service" certificate "$1" >/dev/null
        "$service" keys add "$2" --unlimited --sessions 4 --database "$1/accounts.db" >/dev/null
    fi
    say "Starting the translation service"
    rm -f "$private/service.log" # a former one's would end the wait below
    "$service" serve --database "$1/accounts.db" --certificate "$1/server.pem" \
        --key "$1/server.key" >"$private/service.log" 2>&1 &
    started+=("$!")
    wait_for "the translation service" "$private/service.log" "listening on" "$!"
    grep "listening on" "$private/service.log"
    export SSL_CERT_FILE=$1/ca.pem
}

# ---- Screen --------------------------------------------------------------------------------------

has_window_manager() { xprop -root _NET_SUPPORTING_WM_CHECK | grep -q "window id"; }

# start_screen DPI: with a window manager, a compositor and a host for notification icons.
start_screen() {
    say "Starting a virtual screen at $1 DPI"
    unset WAYLAND_DISPLAY
    export DBUS_SESSION_BUS_ADDRESS=unix:path=$private/none
    mkfifo "$private/display"
    # The background is that of an X server without anything: there is nothing else to see.
    Xvfb -displayfd 3 -screen 0 1280x1024x24 -dpi "$1" -noreset -nolisten tcp \
        3>"$private/display" >"$private/screen.log" 2>&1 &
    started+=("$!")
    DISPLAY=:$(head -n 1 "$private/display")
    export DISPLAY
    rm "$private/display"
    printf 'Xft.dpi: %s\n' "$1" | xrdb -merge -
    openbox >"$private/openbox.log" 2>&1 &
    started+=("$!")
    picom --backend xrender --config /dev/null >"$private/picom.log" 2>&1 &
    started+=("$!")
    wait_until 10 has_window_manager || fail "no window manager"
    trayer --edge top --align right --widthtype request --height 24 >"$private/trayer.log" 2>&1 &
    started+=("$!")
    wait_until 10 xdotool search --class trayer || {
        cat "$private/trayer.log" >&2
        fail "no host for notification icons"
    }
}

# A home of the try-out's own, for settings and transcripts.
use_private_home() {
    export HOME=$private/home XDG_CONFIG_HOME=$private/home/config XDG_RUNTIME_DIR=$private/runtime
    mkdir -p "$HOME/Desktop" "$XDG_CONFIG_HOME"
    mkdir -m 700 "$XDG_RUNTIME_DIR"
}
