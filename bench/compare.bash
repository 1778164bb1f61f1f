# script/bench --compare (sourced): the same work by what one would do without the service, side by side.
# shellcheck shell=bash disable=SC2154,SC2034,SC2016

# The phone has an SSH server in it, at its own loopback; to a station it is reached through the phone's shell service, which
# is the cable here. The keys are made for this run and go with it.
compare_ssh() {
    local server=$work/server in_phone=/data/ssh key=$work/key
    pack "$server" /usr/sbin/dropbear
    cp "$build/bench/libbench_groups.so" "$server/lib"
    dropbearkey -t ed25519 -f "$server/host" >/dev/null 2>&1
    ssh-keygen -q -t ed25519 -N '' -C '' -f "$key"
    cp "$key.pub" "$server"
    put "$server" compare $in_phone
    script/phone shell compare "cd $in_phone && mkdir -p /.ssh && cp key.pub /.ssh/authorized_keys 2>/dev/null
        echo /system/bin/sh >/etc/shells && chmod 700 /.ssh && chmod 600 /.ssh/authorized_keys host
        LD_PRELOAD=$in_phone/lib/libbench_groups.so LD_LIBRARY_PATH=$in_phone/lib \
            $in_phone/bin/dropbear -E -p 127.0.0.1:2222 -r $in_phone/host -P $in_phone/pid 2>log"
    cat >"$work/ssh_config" <<END
Host *
  User root
  IdentityFile $key
  IdentitiesOnly yes
  StrictHostKeyChecking no
  UserKnownHostsFile /dev/null
  LogLevel ERROR
  ProxyCommand $PWD/$build/bin/phone_host shell $PWD/build/phone/compare --raw 'exec busybox nc 127.0.0.1 2222'
Host kept
  ControlMaster auto
  ControlPath $work/kept
  ControlPersist 600
END
    ssh -F "$work/ssh_config" kept true
}
# The kept connection ends with the comparison.
compare_end() { ssh -F "$work/ssh_config" -O exit kept 2>/dev/null; }

path='PATH=/system/bin:/vendor/bin;'

# compare_one TITLE REQUEST LINE: one request of a station beside one line of a shell.
compare_one() {
    local request i
    read -ra request <<<"$2"
    {
        in_turns station 1 "$build/bin/station" --port "$(port_of compare)" "${request[@]}"
        in_turns 'station, a connection that is kept' 50 "$build/bin/station" --port "$(port_of compare)" run "$work/fifty"
        in_turns 'a shell of the phone' 1 "$build/bin/phone_host" shell "$PWD/build/phone/compare" "$path $3"
        in_turns 'ssh, a connection that is kept' 1 ssh -F "$work/ssh_config" kept "$path $3"
        in_turns 'ssh, a connection each time' 1 ssh -F "$work/ssh_config" each "$path $3"
    } >"$work/turns"
    for ((i = 0; i < 50; ++i)); do
        echo "$2"
    done >"$work/fifty"
    compare_show "$1" "$rounds"
}

# compare_show TITLE ROUNDS: each beside the station, with the spread of its own times.
compare_show() {
    local name median least most own=''
    "$build/bin/bench_turns" "$2" <"$work/turns" >"$work/times"
    heading "$1" time station
    while IFS=$'\t' read -r name median least most; do
        if [[ -z $own ]]; then
            own=$median
            show "$name" - "$median" ns
        else
            show "$name" "$own" "$median" ns "$(ratio "$median" "$own")" "$(ratio "$least" "$own")" "$(ratio "$most" "$own")"
        fi
    done <"$work/times"
}
ratio() { awk "BEGIN { printf \"%.4f\", $1 / $2 }"; }

# The steps of a test: one plan of a station, beside a line for each step.
compare_steps() {
    local lines=$work/lines way whole
    grep -v '^#' bench/compare.steps | sed 's/ | .*//' >"$work/plan"
    grep -v '^#' bench/compare.steps | sed 's/^[^|]* | //' >"$lines"
    for way in shell kept each; do
        local command="ssh -F $work/ssh_config $way"
        [[ $way != shell ]] || command="$build/bin/phone_host shell $PWD/build/phone/compare"
        while IFS= read -r line; do
            printf '%s %q </dev/null >/dev/null || exit\n' "$command" "$path $line"
        done <"$lines" >"$work/steps.$way"
    done
    whole=$(sed -E 's/^! (.*)/if \1; then exit 1; fi/' "$lines" | paste -sd ';' | sed 's/;/; /g')
    {
        in_turns station 1 "$build/bin/station" --port "$(port_of compare)" run "$work/plan"
        in_turns 'one shell of the phone for all' 1 "$build/bin/phone_host" shell "$PWD/build/phone/compare" "$path set -e; $whole"
        in_turns 'a shell of the phone for each' 1 sh "$work/steps.shell"
        in_turns 'ssh, a connection that is kept' 1 sh "$work/steps.kept"
        in_turns 'ssh, a connection each time' 1 sh "$work/steps.each"
    } >"$work/turns"
    compare_show "$(wc -l <"$work/plan") steps of the final test" $((rounds / 10 + 1))
}

# compare ROUNDS
compare() {
    local rounds=$1
    script/build release station bench_turns bench_groups >&2
    boot compare
    compare_ssh
    compare_one 'get a property, beside the station' 'get-prop ro.build.id' 'getprop ro.build.id'
    compare_one 'read a node, beside the station' 'read-node /sys/class/power_supply/battery/capacity' \
        'cat /sys/class/power_supply/battery/capacity'
    compare_steps
    compare_end
}
