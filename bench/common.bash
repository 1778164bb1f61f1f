# What the parts of script/bench share (sourced): the build, phones, figures in a table or as JSON.
# shellcheck shell=bash disable=SC2034

build=build/release
format=table
part=''
failed=0
phones=() # that were booted, to be taken down in the end
work=$(mktemp -d)

# boot NAME...: fresh phones, some at once.
boot() {
    local name
    phones+=("$@")
    for name in "$@"; do
        script/phone up "$name" --fresh --build "$build" >/dev/null &
        (($(jobs -rp | wc -l) < 4)) || wait -n
    done
    wait
}
take_down() {
    local name
    for name in "$@"; do
        [[ ! -e build/phone/$name ]] || script/phone down "$name" >/dev/null 2>&1 || true
        rm -rf "build/phone/$name"
    done
}
leave() {
    take_down "${phones[@]}"
    rm -rf "$work"
}
trap leave EXIT

port_of() { echo "build/phone/$1/port"; }

# service_of NAME: the service's process, seen from the workstation: below the one that holds the phone.
service_of() { below "$(pgrep -o -f "phone_host up $PWD/build/phone/$1 ")"; }
below() {
    local child
    # shellcheck disable=SC2013  # the ids are words
    for child in $(cat "/proc/$1"/task/*/children 2>/dev/null); do
        [[ $(cat "/proc/$child/comm" 2>/dev/null) != diag_service ]] || echo "$child"
        below "$child"
    done
}

# pack FOLDER PROGRAM...: the programs and the libraries that they need into FOLDER/bin and FOLDER/lib, as a phone can run
# them: those of the C library and the compiler the phone has.
pack() {
    local folder=$1 program
    mkdir -p "$folder"/{bin,lib}
    for program in "${@:2}"; do
        cp "$program" "$folder/bin"
        ldd "$program" | sed -nE 's/.* => (\/[^ ]+) .*/\1/p' | grep -vE '/(libc|libm|libgcc_s|libstdc\+\+)\.so' |
            xargs -r cp -t "$folder/lib"
    done
}
# put FOLDER NAME WHERE: its content into a folder of the phone.
put() { tar -c --owner=0 --group=0 -C "$1" . | script/phone shell "$2" "mkdir -p $3 && cd $3 && tar -x"; }

# in_turns NAME DIVISOR WORD...: prints a command as bench_turns takes it.
in_turns() { (IFS=$'\t' && echo "$*"); }

the_machine() { echo "$(nproc) cores, load $(cut -d' ' -f1 /proc/loadavg), $(uname -m), Linux $(uname -r)"; }

# show NAME LIMIT FIGURE UNIT [RATIO LOW HIGH]: one figure; the limit is "-" where there is none. RATIO is figure by limit
# unless it is given with the least and the most of several runs.
separator=''
show() {
    if [[ $format == json ]]; then
        printf '%s\n  {"part": "%s", "name": "%s", "limit": %s, "value": %s, "unit": "%s"%s}' "$separator" "$part" "$1" \
            "${2/#-/null}" "$3" "$4" "${5:+, \"ratio\": $5, \"least\": $6, \"most\": $7}"
        separator=,
        return
    fi
    awk -v name="$1" -v limit="$2" -v value="$3" -v unit="$4" -v ratio="${5-}" -v low="${6-}" -v high="${7-}" 'BEGIN {
        divisor = 1; decimals = 0
        if (unit == "ns") { divisor = value < 1e6 ? 1e3 : 1e6; unit = value < 1e6 ? "us" : "ms"; decimals = 2 }
        ratio = ratio != "" ? sprintf("%.2f  %.2f..%.2f", ratio, low, high) : limit == "-" || limit == 0 ? "" : sprintf("%.2f", value / limit)
        printf "%-48s %12s %12.*f %-4s %s\n", name, limit == "-" ? "" : sprintf("%.*f", decimals, limit / divisor),
            decimals, value / divisor, unit, ratio
    }'
}
# heading TITLE [FIGURE [LIMIT]]: what the columns are called.
heading() {
    part=$1
    [[ $format == json ]] || printf '\n%-48s %12s %12s %-4s %s\n' "$1" "${3-limit}" "${2-figure}" '' ratio
}
# Lines of name, limit, figure and unit (and ratio, least and most), parted by tabs.
show_all() {
    local name limit figure unit ratio low high
    while IFS=$'\t' read -r name limit figure unit ratio low high; do
        show "$name" "$limit" "$figure" "$unit" ${ratio:+"$ratio" "$low" "$high"}
    done
}
# The same lines of several runs as one: of limit, figure and ratio the median each, and the least and the most ratio.
over_runs() {
    awk -F'\t' '
        function median(list, count,    i, j, t, sorted) {
            for (i = 1; i <= count; i++) sorted[i] = list[i]
            for (i = 2; i <= count; i++)
                for (j = i; j > 1 && sorted[j - 1] > sorted[j]; j--) { t = sorted[j]; sorted[j] = sorted[j - 1]; sorted[j - 1] = t }
            lowest = sorted[1]; highest = sorted[count]
            return count % 2 ? sorted[(count + 1) / 2] : (sorted[count / 2] + sorted[count / 2 + 1]) / 2
        }
        !($1 in runs) { order[++names] = $1 }
        { n = ++runs[$1]; unit[$1] = $4; limits[$1, n] = $2; figures[$1, n] = $3 }
        END {
            for (i = 1; i <= names; i++) {
                name = order[i]; count = runs[name]
                for (n = 1; n <= count; n++) { l[n] = limits[name, n] + 0; f[n] = figures[name, n] + 0; r[n] = l[n] > 0 ? f[n] / l[n] : 0 }
                limit = limits[name, 1] == "-" ? "-" : median(l, count)
                figure = median(f, count)
                if (limit == "-" || count == 1) printf "%s\t%s\t%s\t%s\n", name, limit, figure, unit[name]
                else { ratio = median(r, count); printf "%s\t%s\t%s\t%s\t%.4f\t%.4f\t%.4f\n", name, limit, figure, unit[name], ratio, lowest, highest }
            }
        }'
}
