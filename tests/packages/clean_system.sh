# A clean system for the tests of the packages: unpacking it, commands in it, and what is asked of the
# service there. Sourced by tests that run as root, in namespaces of their own for mounts, processes
# and the network, with an archive of the system and the folder of the packages as arguments.

repository=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
. "$repository/scripts/common.sh"
. "$repository/scripts/scene.sh" # its `private` folder and `started` processes go with the test
archive=$1
debs=$2

# ---- The system ----------------------------------------------------------------------------------

system=$private/system
log=$repository/build/test-packages/apt.log
: >"$log"

enter_system() {
    mkdir "$system" "$system/debs"
    tar --extract --file="$archive" --directory="$system" --numeric-owner
    mount --bind "$debs" "$system/debs"
    ip link set lo up
}

leave_system() {
    umount --lazy --recursive "$system"/{debs,proc,dev/*,tmp/{sound,.X11-unix}} 2>/dev/null || true
}
trap 'code=$?; leave_system; finish "$code"' EXIT

# In words, for what runs in the background: the process is then the command's own.
inside_command=(chroot "$system" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C.UTF-8)
inside() { "${inside_command[@]}" "$@"; }
apt_inside() {
    inside DEBIAN_FRONTEND=noninteractive apt-get --yes --option Dpkg::Use-Pty=0 "$@" \
        >"$private/apt" 2>&1 || {
        cat "$private/apt" >&2
        fail "apt-get $*"
    }
    cat "$private/apt" >>"$log"
}
admin() { inside kelvarin-service-admin "$@"; }
version_of() { inside dpkg-query --show --showformat='${Version}' "$1"; }

# check SENTENCE COMMAND ...: the command has to succeed.
check() {
    "${@:2}" || fail "not true: $1"
    echo "  ok: $1"
}
has_ended() { ! kill -0 "$1" 2>/dev/null; }
is() { [ "$1" = "$2" ] || { printf 'expected "%s", found "%s"\n' "$2" "$1" >&2; return 1; }; }
not() { ! "$@"; }

# ---- The service ---------------------------------------------------------------------------------

bundle=$system/etc/ssl/certs/ca-certificates.crt # what the system trusts

key_status() {
    curl --silent --show-error --cacert "$bundle" "https://localhost/key/status?access_key=$1"
}
is_valid() { key_status "$1" | grep -q '"valid":true'; }

# post OPERATION BODY
post() {
    curl --silent --show-error --fail-with-body --cacert "$bundle" \
        --header 'Content-Type: application/json' --data @- "https://localhost/session/$1" <<<"$2"
}

# has_only_rights_of_service PROCESS
has_only_rights_of_service() {
    local port=0000000000000400 # CAP_NET_BIND_SERVICE
    local field
    for field in CapEff CapPrm CapBnd CapAmb; do
        grep -q "^$field:[[:space:]]*$port$" "/proc/$1/status" || return 1
    done
    grep -q "^NoNewPrivs:[[:space:]]*1$" "/proc/$1/status" || return 1
    is "$(stat -c %u "/proc/$1")" "$(inside id -u kelvarin-service)"
}

# translates TARGET LOCALE: a session with recorded English speech gives a finished caption.
translates() {
    local identity languages session answer chunk
    identity='"access_key":"'$key'","machine_id":"test","os_version":"test","client_version":"test"'
    languages='"lang_a":"en-US","lang_a_tgt":"en","lang_b":"'$2'","lang_b_tgt":"'$1'"'
    answer=$(post start "{$identity,$languages}") || { echo "$answer" >&2; return 1; }
    session=$(sed 's/.*"session_id":"\([^"]*\)".*/\1/' <<<"$answer")
    : >"$private/captions"
    {
        tail -c +45 "$speech/sense_and_sensibility_01_austen_64kb-0870.wav" # behind its header
        head -c 48000 /dev/zero
    } | split --bytes=32768 --filter=base64\ --wrap=0\;echo | while read -r chunk; do
        post exchange "{\"session_id\":\"$session\",$identity,\"audio_b64\":\"$chunk\"}" \
            >>"$private/captions"
    done
    post stop "{\"session_id\":\"$session\",$identity}" >/dev/null
    grep -Eq '"translated":"[^"]+","is_final":true' "$private/captions"
}

# ---- What may be left ----------------------------------------------------------------------------

trusts_authority() { # in one line, as its text is broken anywhere
    local text
    text=$(grep -v -- ----- "$private/ca.pem" | tr -d '\n')
    tr -d '\n' <"$bundle" | grep -qF "$text"
}

leaves_nothing() {
    local left
    left=$(
        chroot "$system" find / -xdev \( -path /debs -o -path /home -o -path /var/log \) -prune -o \
            \( -iname '*kelvarin*' -o -nouser -o -nogroup \) -print
        chroot "$system" find /etc/ssl/certs -xtype l # links to what is no longer there
        grep -l kelvarin "$system"/etc/{passwd,group,shadow,gshadow} "$system/var/lib/dpkg/status"
    ) || true
    [ -z "$left" ] || { echo "$left" >&2; return 1; }
}
