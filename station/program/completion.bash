# Completion of the station's command line for bash. The words are the station's own: its list tells the names and what
# may stand behind one, its help the options.
# shellcheck shell=bash

_station() {
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} station=${COMP_WORDS[0]} name='' words i
    COMPREPLY=()
    case $previous in
        --port | --file | --record | --records | --answers | --junit | --csv | --jsonl | --cek | --pm) mapfile -t COMPREPLY < <(compgen -f -- "$current"); return ;;
        --timeout | --retries | --text | --hex | --body | --byte4 | --length | --expect | --limit | --margin | --page | --token) return ;;
    esac
    for ((i = 1; i < COMP_CWORD; ++i)); do
        case ${COMP_WORDS[i]} in
            --port | --timeout | --retries) ((++i)) ;;
            -*) ;;
            *) name=${COMP_WORDS[i]}; break ;;
        esac
    done
    if [[ $current == -* ]]; then
        words=$("$station" ${name:+"$name"} --help 2>/dev/null | grep -oE -- '(^|[ ,])--[a-z0-9][a-z0-9-]*')
    else
        words=$("$station" list --words ${name:+"$name"} 2>/dev/null)
    fi
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
    case $name in
        run | line | push | pull) [[ $current == -* ]] || mapfile -t COMPREPLY < <(compgen -f -- "$current") ;;
    esac
}
complete -o filenames -F _station station
