# script/bench --growth (sourced): what becomes of the figures when there is more of everything.
# shellcheck shell=bash disable=SC2154,SC2034,SC2016

# What has been measured, a file for each part: a size and its figures a line. What is there is not measured again, so that it
# can be had piece by piece; the table and the plot are made of all that is there.
kept=build/growth
seconds=5 # of load for a figure

declare -A sizes=(
    [stations]='1 8 64 512'
    [phones]='1 2 4 8 16 32 64'
    [slots]='1 2 4 8 16 32 64'
    [records]='10000 100000 1000000'
)

# missing PART: its sizes that have not been measured.
missing() {
    local size
    [[ -z $only || $only == "$1" ]] || return 0
    for size in ${wanted:-${sizes[$1]}}; do
        grep -qs "^$size " "$kept/$1" || echo "$size"
    done
}
# is_missing PART SIZE
is_missing() { grep -qx "$2" <<<"$(missing "$1")"; }
# keep PART SIZE FIGURE...
keep() {
    echo "${*:2}" >>"$kept/$1"
    sort -n -o "$kept/$1" "$kept/$1"
    echo "bench: $1: ${*:2}   (load $(cut -d' ' -f1 /proc/loadavg))" >&2
}

# Many stations on one phone: answers a second of all together, and of the slowest.
grow_stations() {
    local size port ports i
    [[ -n $(missing stations) ]] || return 0
    boot grown1
    port=$(port_of grown1)
    for size in $(missing stations); do
        ports=()
        for ((i = 0; i < size; ++i)); do
            ports+=("$port")
        done
        keep stations "$size" "$("$build/bin/bench_load" rate $seconds "${ports[@]}")"
    done
}

# Many phones, with one station each, and with a slot of a line each: each size has the phones of the one before it, too.
grow_phones() {
    local size names=() fresh ports i
    for size in $({ missing phones; missing slots; } | sort -nu); do
        fresh=()
        for ((i = ${#names[@]} + 1; i <= size; ++i)); do
            [[ -e build/phone/grown$i ]] || fresh+=("grown$i")
            names+=("grown$i")
        done
        boot "${fresh[@]}"
        ports=("${names[@]/#/build/phone/}")
        ports=("${ports[@]/%//port}")
        ! is_missing phones "$size" || keep phones "$size" "$("$build/bin/bench_load" rate $seconds "${ports[@]}")"
        ! is_missing slots "$size" || grow_slots "$size" "${ports[@]}"
    done
}

# Units an hour, by as many rounds of the final test as take ten seconds, and how long a unit takes. A unit may fail where the
# machine keeps the phone's daemons from starting in time: it was tested all the same.
grow_slots() {
    local size=$1 rounds=0 begin took=0
    begin=${EPOCHREALTIME/[.,]/}
    while ((took < 10000000)); do
        "$build/bin/station" line plans/final-test.station --port "${@:2}" --once --answers plans/final-test.answers \
            --records "$work/line.db" >"$work/line.out" 2>&1 || {
            tail -n 1 "$work/line.out" >&2
            grep -qE " $size units? tested" "$work/line.out" || return 1
        }
        rounds=$((rounds + 1))
        took=$((${EPOCHREALTIME/[.,]/} - begin))
    done
    keep slots "$size" "$(awk "BEGIN { printf \"%.0f %.2f\", $size * $rounds * 3.6e9 / $took, $took / $rounds / 1e6 }")"
}

# Runs of 40 steps that are kept: the file's size, and how long the station takes to tell the runs of a unit, the failed ones
# of a day and a day's yield (milliseconds). A million takes some 5 GB below build/growth, unless --records names a file.
grow_records() {
    local size file records
    for size in $(missing records); do
        file=$kept/records.db
        if [[ -n $given && $size == "$(of_file "$given")" ]]; then
            file=$given
        else
            rm -f "$file"*
            "$build/bin/bench_records" "$file" fill "$size" 40
        fi
        records=("$build/bin/station" records)
        {
            in_turns unit 1 "${records[@]}" list --records "$file" --unit CV00000400
            in_turns fail 1 "${records[@]}" list --records "$file" --verdict fail --since 24h
            in_turns yield 1 "${records[@]}" yield --records "$file" --since 24h
        } >"$work/questions"
        "$build/bin/bench_turns" 5 <"$work/questions" >"$work/times"
        keep records "$size" "$(stat -c %s "$file") $(awk -F '\t' '{ printf "%s%.1f", (NR > 1 ? " " : ""), $2 / 1e6 }' "$work/times")"
        rm -f "$kept"/records.db*
    done
}
of_file() { sqlite3 "file:$1?mode=ro" 'SELECT count(*) FROM runs'; }

# growth
growth() {
    mkdir -p $kept
    script/build release bench_load bench_records bench_turns station >&2
    { the_machine && date -u +%F; } >$kept/machine
    grow_stations
    grow_phones
    grow_records
    bench/performance $kept docs
    echo "docs/performance.md and docs/performance.svg are written" >&2
}
