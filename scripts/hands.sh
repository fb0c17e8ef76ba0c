# A user's hands and eyes for a try-out on a screen of its own: pressing what stands on the overlay and
# in the settings, at 96 DPI, playing sentences, and looking at what came of it. Sourced after
# scene.sh; `program` is the command that starts Kelvarin.

# Where everything stands: "LEFT TOP WIDTH HEIGHT" in its window, by name. The name begins with that of
# the window: overlay.settings, popup.start.
declare -A places
while read -r name place; do
    places[$name]=$place
done < <("$bin/tools/kelvarin-places")
[ -v 'places[popup.start]' ] || fail "kelvarin-places names no places"

# spot NAME: sets spot_x and spot_y to the middle of the place on the screen. The window has to have been
# found by place_of.
spot() {
    [ -v "places[$1]" ] || fail "there is no place called $1"
    local left top width height
    read -r left top width height <<<"${places[$1]}"
    local -n window_x=${1%%.*}_x window_y=${1%%.*}_y
    spot_x=$((window_x + left + width / 2))
    spot_y=$((window_y + top + height / 2))
}

# click BUTTON X Y: with a pointer that comes from elsewhere, as a hand's does.
click() {
    xdotool mousemove "$(($2 - 3))" "$(($3 + 2))" sleep 0.1 mousemove "$2" "$3" sleep 0.1 click "$1"
}
press() { spot "$1"; click 1 "$spot_x" "$spot_y"; }
point_at() { spot "$1"; xdotool mousemove "$spot_x" "$spot_y"; }

# place_of NAME WINDOW: its place as NAME_x and NAME_y, once it is seen.
place_of() {
    wait_until 30 xdotool search --onlyvisible --name "^$2\$" || fail "the window $2 did not appear"
    local X Y
    eval "$(xdotool search --onlyvisible --name "^$2\$" getwindowgeometry --shell | head -n 5)"
    printf -v "${1}_x" %s "$X"
    printf -v "${1}_y" %s "$Y"
}

# picture FILE LEFT TOP WIDTH HEIGHT, of the screen.
picture() { import -window root -crop "$4x$5+$2+$3" +repage "$1"; }

# picture_of FILE WINDOW [MARGIN]: of one of the program's windows, with so many pixels around it.
picture_of() {
    local margin=${3:-0} width height
    local -n window_x=${2}_x window_y=${2}_y
    read -r _ _ width height <<<"${places[$2]}"
    picture "$1" $((window_x - margin)) $((window_y - margin)) $((width + 2 * margin)) \
        $((height + 2 * margin))
}

trace=$out/kelvarin.trace
pictures=$out

start_overlay() {
    "${program[@]}" 2>"$trace" &
    kelvarin=$!
    started+=("$kelvarin")
    place_of overlay Kelvarin
}

exit_by_tray() {
    say "Exiting by the tray menu"
    wait_until 10 xdotool search --onlyvisible --class trayer || fail "no notification area appeared"
    local X Y WIDTH HEIGHT
    eval "$(xdotool search --onlyvisible --class trayer getwindowgeometry --shell)"
    click 3 $((X + WIDTH / 2)) $((Y + HEIGHT / 2))
    sleep 1
    xdotool key Up Return
    wait "$kelvarin" || fail "Kelvarin ended with an error"
}

# The bar under a key that works is green.
key_is_valid() {
    local red green
    spot popup.key_bar
    read -r red green _ < <(import -window root -crop "1x1+$spot_x+$spot_y" \
        -depth 8 rgb:- | od -An -tu1)
    ((green > red + 8))
}

open_settings() {
    press overlay.settings
    place_of popup Config
}

# Types the access key and chooses English and Spanish.
set_up_key_and_languages() {
    say "Opening the settings, typing the access key, choosing the languages"
    open_settings
    press popup.key
    xdotool type --delay 20 "$key"
    wait_until 5 key_is_valid || fail "the access key is not shown as valid"
    press popup.language_a # English (US), the third entry
    sleep 0.3
    press popup.language_a.row3
    press popup.language_b # Español, the tenth entry, two notches of the wheel away
    sleep 0.3
    point_at popup.language_b.row3
    xdotool click 5 click 5
    press popup.language_b.row8
}

captions() { grep -c '^\[' "$transcript"; }
all_are_shown() { [ "$(captions)" -ge "$sentences" ]; }

# listen SINK FOLDER: presses Start in the settings, plays five sentences to the sink, waits for their
# captions in the folder's transcript, and stops.
listen() {
    say "Pressing Start and playing five recorded sentences"
    press popup.start
    wait_for "the run" "$trace" "OnTranslationStarted" "$kelvarin"
    local recording
    for recording in "$speech"/*.wav; do
        paplay --device="$1" "$recording"
        sleep 1 # a speaker's pause between two sentences
    done
    transcript=$(ls "$2"/Kelvarin*/*.txt)
    sentences=$(ls "$speech"/*.wav | wc -l)
    wait_until 20 all_are_shown ||
        fail "there are $(captions) captions of $sentences sentences"
    picture_of "$pictures/overlay.png" overlay 20
    echo "The captions are to be seen in $pictures/overlay.png."
    say "Transcript"
    tr -d '\r' <"$transcript"
    cp "$transcript" "$pictures/"
    press overlay.stop
    wait_for "the end of the run" "$trace" "OnTranslationStopped" "$kelvarin"
}
