# For the lines of these files. serve COMMAND... runs it beside the lines until its page is there, ended ends it and prints what
# it has said. get PATH [HEADER...] and post PATH BODY [HEADER...] ask that page and print all that comes, for a second at most;
# raw FORMAT [WORD...] does with what printf makes of it; body is get without the head; head_and_end leaves the first and the last
# line of a reply; await PATTERN PATH [HEADER...] asks until it comes; question prints the open question's id.
export TOKEN='Authorization: Bearer 0123456789abcdef'
serve() {
    : >served
    "$@" >>served 2>&1 &
    echo $! >served.process
    for ((i = 0; i < 200; i++)); do
        ! sed -nE 's|.*page is at http://[^/]*:([0-9]+)/|\1|p' served | grep . >served.port || return 0
        sleep 0.05
    done
    echo "serve: no page: $(<served)"
}
ended() {
    kill -INT "$(<served.process)"
    for ((i = 0; i < 200; i++)); do
        [ -e "/proc/$(<served.process)/fd/2" ] || break # rather than kill -0: who has ended may not be waited for at once
        sleep 0.05
    done
    grep -v 'page is at' served
}
get() { ask_page "GET $1" '' "${@:2}"; }
raw() {
    local page
    exec {page}<>"/dev/tcp/127.0.0.1/$(<served.port)"
    # shellcheck disable=SC2059 # the format is the caller's
    printf "$@" >&"$page"
    timeout 1 cat <&"$page" | tr -d '\r'
    exec {page}>&-
    echo
}
head_and_end() { sed -n '1p;$p'; }
body() { get "$@" | sed '1,/^$/d'; }
post() { ask_page "POST $1" "$2" "${@:3}"; }
ask_page() {
    local page header
    exec {page}<>"/dev/tcp/127.0.0.1/$(<served.port)"
    {
        printf '%s HTTP/1.1\r\nHost: 127.0.0.1:%s\r\nConnection: close\r\n' "$1" "$(<served.port)"
        for header in "${@:3}"; do printf '%s\r\n' "$header"; done
        [[ -z $2 ]] || printf 'Content-Type: application/json\r\nContent-Length: %s\r\n' "${#2}"
        printf '\r\n%s' "$2"
    } >&"$page"
    timeout 1 cat <&"$page" | tr -d '\r'
    exec {page}>&-
    echo
}
await() {
    for ((i = 0; i < 200; i++)); do
        ! get "$2" "${@:3}" | grep -q "$1" || return 0
        sleep 0.05
    done
    echo "await: no $1"
}
question() { get /api/slots "$TOKEN" | sed -nE 's/.*"question":\{"id":"([0-9]+).*/\1/p'; }
# port NAME COMMAND serves a port by a shell line for each connection; stalling NAME COUNT is the phone's until so many bytes
# were sent. soon COMMAND... runs it until it succeeds, beside COMMAND... beside the lines, and keeps what it says in `beside`.
port() {
    echo "$2" >"$1.bash"
    socat "UNIX-LISTEN:$1,fork" "EXEC:bash $1.bash" >/dev/null 2>&1 &
    ports+=($!)
    trap 'kill "${ports[@]}"' EXIT
    soon test -S "$1"
}
stalling() { port "$1" "{ dd bs=1 count=$2 status=none; cat >/dev/null; } | socat - UNIX-CONNECT:$STATION_PORT"; }
beside() {
    : >beside
    "$@" >>beside 2>&1 &
}
soon() {
    for ((i = 0; i < 200; i++)); do
        ! "$@" >/dev/null 2>&1 || return 0
        sleep 0.02
    done
    echo "soon: not $*"
}
