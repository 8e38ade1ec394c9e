#compdef velactl velahost
# Completion of velactl and velahost for zsh: of what their help and `velactl list` say. Installed by the
# project; from the sources, copy this file as _velactl into a folder of $fpath.

# "NAME:what it is" of a section of the help
_vela_help() {
    local section=$1
    shift
    "$@" --help 2>/dev/null | sed -n "/^$section:/,/^\$/s/^  \([^ ]*\).*  \(.*\)/\1:\2/p"
}

_vela_options() {
    local -a options
    options=(${(f)"$(_vela_help Options "$@" | sed -n 's/^\(-h,\)*\(--[a-z-]*\)[^:]*:/\2:/p')"})
    _describe option options
}

_vela_host() {
    case $words[CURRENT-1] in
    --chip) compadd simulated absent ;;
    --fault) compadd -S = -- $("$words[1]" --fault help 2>&1 | sed -n 's/^  \([A-Za-z0-9]*\):.*/\1/p') ;;
    --frames) _files -/ ;;
    --library | --trace | --record | --journal) _files ;;
    *) _vela_options $words[1] ;;
    esac
}

_vela_client() {
    local -a plain commands
    plain=(${words[2,CURRENT-1]:#-*})
    if (( ! $#plain )); then
        commands=(${(f)"$(_vela_help Subcommands $words[1])"})
        _describe subcommand commands
        _vela_options $words[1]
    elif [[ $words[CURRENT] == -* ]]; then
        _vela_options $words[1] $plain[1]
    elif [[ $plain[1] == (vela|composer|describe) ]]; then
        # The operation only: what follows is JSON.
        (( $#plain > 1 )) || compadd -- $("$words[1]" list 2>/dev/null |
            sed -n "/^record/d; ${${plain[1]:#describe}:+/^$plain[1] /!d;} s/^[^(]* \([A-Za-z0-9]*\)(.*/\1/p" | sort -u)
    else
        _files
    fi
}

if [[ $service == velahost ]]; then
    _vela_host
else
    _vela_client
fi
