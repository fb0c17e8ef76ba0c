# What the scripts share: where things are, saying what is done, and installing packages.
# Sourced by bash scripts that have set -euo pipefail.

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
PATH=$PATH:/usr/sbin:/sbin # where setcap is, for users who do not have it in their path

say() { printf '\n==> %s\n' "$*"; }
fail() {
    printf '\nerror: %s\n' "$*" >&2
    exit 1
}

# Runs a command as root: as it stands for root, by sudo for others.
as_root() {
    if [ "$(id -u)" -eq 0 ]; then
        "$@"
    elif command -v sudo >/dev/null; then
        sudo "$@"
    else
        fail "this needs root or sudo: $*"
    fi
}

# What each job needs of Debian, by package.
build_packages=(
    ca-certificates cmake g++ libboost-dev libcap2-bin libcurl4-openssl-dev libpocketsphinx-dev
    libpq-dev libpulse-dev libsphinxbase-dev libsqlite3-dev libssl-dev libxcb-shape0-dev libxcb1-dev
    ninja-build nlohmann-json3-dev pkg-config qt6-base-dev)
service_packages=(
    apertium apertium-eng-spa apertium-es-pt apertium-fr-es apertium-lex-tools apertium-spa-ita
    pocketsphinx-en-us)
sound_packages=(pulseaudio pulseaudio-utils pocketsphinx-testdata)
# For tests alone: where they are installed, the next session's sound may go through them.
pipewire_packages=(dbus-daemon pipewire pipewire-pulse wireplumber)
# What the overlay's text needs to be seen in every language.
font_packages=(
    fonts-material-design-icons-iconfont fonts-noto-cjk fonts-noto-color-emoji fonts-noto-core)
screen_packages=(
    imagemagick openbox picom trayer x11-utils x11-xserver-utils xdotool xvfb)
test_packages=(
    googletest libbenchmark-dev libcpp-httplib-dev libgmock-dev libgtest-dev libsamplerate0-dev
    libspeexdsp-dev postgresql)
cluster_packages=(haproxy postgresql)
words_packages=(
    asterisk-core-sounds-{en,es,fr,it,ru} asterisk-core-sounds-{en,es,fr,it,ru}-g722
    asterisk-moh-opsound-g722 ffmpeg)
deb_packages=(appstream desktop-file-utils dpkg-dev file git)
zip_packages=(binutils-mingw-w64-x86-64 g++-mingw-w64-x86-64-posix git icoutils unzip zip)
clean_root_packages=(curl debootstrap iproute2 pocketsphinx-testdata procps systemd-container)
windows_packages=(g++-mingw-w64-x86-64-posix googletest wine wine64)
check_packages=(clang-format clang-tidy)

# Installs those of the packages that are not there yet.
install_packages() {
    local missing=()
    local package
    for package in "$@"; do
        if [ "$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null)" != installed ]; then
            missing+=("$package")
        fi
    done
    if [ ${#missing[@]} -eq 0 ]; then
        return
    fi
    say "Installing ${#missing[@]} packages: ${missing[*]}"
    as_root apt-get update -qq
    as_root env DEBIAN_FRONTEND=noninteractive \
        apt-get install -qq -y --no-install-recommends "${missing[@]}" >/dev/null
}

# Configures and builds a preset; what it prints is kept for the case that it fails.
build() {
    local preset=$1
    local log=$root/build/$preset.log
    shift
    say "Building ($preset)"
    mkdir -p "$root/build"
    if ! (cd "$root" && cmake --preset "$preset" "$@" && cmake --build --preset "$preset") \
        >"$log" 2>&1; then
        tail -n 60 "$log" >&2
        fail "the build of $preset failed; all it said is in build/$preset.log"
    fi
}

# The version that CMake has found in the project; known after a build.
built_version() { sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$root/build/$1/CMakeCache.txt"; }

# The time that everything in a package gets, so that building the same sources again gives the same
# bytes: that of the last commit, or of this file where there is no history.
set_release_time() {
    SOURCE_DATE_EPOCH=${SOURCE_DATE_EPOCH:-$(git -C "$root" log -1 --format=%ct 2>/dev/null ||
        stat -c %Y "${BASH_SOURCE[0]}")}
    export SOURCE_DATE_EPOCH
}
