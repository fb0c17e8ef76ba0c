# A user's hands and eyes for a try-out on a screen of its own: pressing what stands on the overlay and
# in the settings, at 96 DPI, playing sentences, and looking at what came of it. Sourced behind
# scene.sh; `program` is the command that starts Kelvarin.

# click BUTTON X Y: with a pointer that comes from elsewhere, as a hand's does.
click() {
    xdotool mousemove "$(($2 - 3))" "$(($3 + 2))" sleep 0.1 mousemove "$2" "$3" sleep 0.1 click "$1"
}
on_overlay() { click 1 $((overlay_x + $1)) $((overlay_y + $2)); }
on_popup() { click 1 $((popup_x + $1)) $((popup_y + $2)); }

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
    read -r red green _ < <(import -window root -crop "1x1+$((popup_x + 200))+$((popup_y + 111))" \
        -depth 8 rgb:- | od -An -tu1)
    ((green > red + 8))
}

open_settings() {
    on_overlay 198 20
    place_of popup Config
}

# Types the access key and chooses English and Spanish.
set_up_key_and_languages() {
    say "Opening the settings, typing the access key, choosing the languages"
    open_settings
    on_popup 195 91
    xdotool type --delay 20 "$key"
    wait_until 5 key_is_valid || fail "the access key is not shown as valid"
    on_popup 96 179 # Language A: English (US), the third entry
    sleep 0.3
    on_popup 96 253
    on_popup 293 179 # Language B: Español, the tenth entry, two notches of the wheel away
    sleep 0.3
    xdotool mousemove $((popup_x + 293)) $((popup_y + 250)) click 5 click 5
    on_popup 293 373
}

captions() { grep -c '^\[' "$transcript"; }
all_are_shown() { [ "$(captions)" -ge "$sentences" ]; }

# listen SINK FOLDER: presses Start in the settings, plays five sentences to the sink, waits for their
# captions in the folder's transcript, and stops.
listen() {
    say "Pressing Start and playing five recorded sentences"
    on_popup 195 346
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
    picture "$pictures/overlay.png" $((overlay_x - 20)) $((overlay_y - 20)) 420 460
    echo "The captions are to be seen in $pictures/overlay.png."
    say "Transcript"
    tr -d '\r' <"$transcript"
    cp "$transcript" "$pictures/"
    on_overlay 308 20
    wait_for "the end of the run" "$trace" "OnTranslationStopped" "$kelvarin"
}
