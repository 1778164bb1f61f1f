# script/bench --soak (sourced): many mixed requests to one phone or several at once, and what became of each service.
# shellcheck shell=bash disable=SC2154,SC2034,SC2016

# A phone in which every program is watched for what it cannot start (bench/witness.cpp).
boot_witnessed() {
    local name before
    boot "$@"
    mkdir "$work/witness"
    cp "$build/bench/libbench_witness.so" "$work/witness"
    for name in "$@"; do
        before=$(service_of "$name")
        put "$work/witness" "$name" /data/bench
        script/phone shell "$name" 'echo /data/bench/libbench_witness.so >/etc/ld.so.preload
            setprop ctl.stop diag_service; setprop ctl.start diag_service'
        until [[ $(service_of "$name") =~ ^[0-9]+$ && $(service_of "$name") != "$before" ]]; do
            sleep 0.1
        done
        script/phone shell "$name" 'grep -q witness "/.proc/$(pidof diag_service)/maps"' ||
            { echo "bench: the service of $name has no witness" >&2; exit 1; }
    done
}

# soak REQUESTS PHONES
soak() {
    local folder name number soaking=() names=() status
    script/build release bench_soak bench_witness >&2
    folder=build/soak/$(date -u +%Y%m%d-%H%M%S)
    mkdir -p "$folder"
    for ((number = 1; number <= $2; ++number)); do
        names+=("soak$number")
        mkdir "$folder/soak$number"
    done
    boot_witnessed "${names[@]}"
    echo "soak: $(the_machine), from $(date -u +%T); what is unexpected is kept in $folder" >&2
    for name in "${names[@]}"; do
        SOAK_PHONE=$name "$build/bin/bench_soak" $(($1 / $2)) "$(service_of "$name")" "$(port_of "$name")" bench/soak.station \
            "$folder/$name" bench/evidence >"$folder/$name/figures" 2> >(sed -u "s/^/$name: /" | tee "$folder/$name/told" >&2) &
        soaking+=($!)
    done
    trap 'kill -TERM "${soaking[@]}" 2>/dev/null' INT TERM # they tell how far they came
    for number in "${!names[@]}"; do
        name=${names[$number]}
        while status=0 && { wait "${soaking[$number]}" || status=$?; } && kill -0 "${soaking[$number]}" 2>/dev/null; do
            : # a signal has ended the wait, not the soak
        done
        heading "$name: mixed requests" after before
        show_all <"$folder/$name/figures"
        script/phone shell "$name" 'cat /data/witness 2>/dev/null || true' >"$folder/$name/witness"
        show 'calls that failed, or children ended by a signal' - "$(wc -l <"$folder/$name/witness")" ''
        [[ $status == 0 ]] || { echo "bench: the soak of $name: not as it should be; see $folder/$name" >&2; failed=1; }
    done
    trap - INT TERM
    echo "soak: $(the_machine), until $(date -u +%T)" >&2
}
