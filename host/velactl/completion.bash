# Completion of velactl and velahost for bash: source this file, or install the project.

_vela_options() {
    "$1" ${2:+"$2"} --help 2>/dev/null | grep -oE -- '--[a-z][a-z-]*' | sort -u
}

_velactl() {
    local program=${COMP_WORDS[0]} word=${COMP_WORDS[COMP_CWORD]} command= i
    for ((i = 1; i < COMP_CWORD; ++i)); do
        [[ ${COMP_WORDS[i]} == -* ]] || { command=${COMP_WORDS[i]}; break; }
    done
    COMPREPLY=()
    if [ -z "$command" ]; then
        COMPREPLY=($(compgen -W "$("$program" --help 2>/dev/null |
            sed -n '/^Subcommands:/,/^$/s/^  \([a-z][a-z-]*\) .*/\1/p')
            $(_vela_options "$program")" -- "$word"))
    elif [[ $word == -* ]]; then
        COMPREPLY=($(compgen -W "$(_vela_options "$program" "$command")" -- "$word"))
    elif [[ $command == vela || $command == composer ]]; then
        # The operation only: what follows is JSON.
        ((COMP_CWORD != i + 1)) || COMPREPLY=($(compgen -W "$("$program" list 2>/dev/null |
            sed -n "s/^$command [^ ]* \([A-Za-z0-9]*\)(.*/\1/p")" -- "$word"))
    elif [[ $command == host && $COMP_CWORD == $((i + 1)) ]]; then
        COMPREPLY=($(compgen -W "record journal trace fault" -- "$word"))
    elif [[ $command == describe ]]; then
        COMPREPLY=($(compgen -W "$("$program" list 2>/dev/null |
            sed -n '/^record/d; s/.* \([A-Za-z0-9]*\)(.*/\1/p')" -- "$word"))
    else
        COMPREPLY=($(compgen -f -- "$word"))
    fi
}

_velahost() {
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]}
    case $before in
    --chip) COMPREPLY=($(compgen -W "simulated absent" -- "$word")) ;;
    --fault)
        compopt -o nospace
        COMPREPLY=($(compgen -S = -W "$("${COMP_WORDS[0]}" --fault help 2>/dev/null |
            sed -n 's/^  \([A-Za-z0-9]*\):.*/\1/p')" -- "$word"))
        ;;
    --frames) COMPREPLY=($(compgen -d -- "$word")) ;;
    --library | --trace | --record | --journal) COMPREPLY=($(compgen -f -- "$word")) ;;
    *) COMPREPLY=($(compgen -W "$(_vela_options "${COMP_WORDS[0]}")" -- "$word")) ;;
    esac
}

complete -F _velactl velactl
complete -F _velahost velahost
