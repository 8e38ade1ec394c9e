# Completion of velactl and velahost for fish: of what their help and `velactl list` say. Installed by the
# project; from the sources, source this file.

function __vela_help
    # "  NAME   what it is" of a section of the help, as NAME, a tab, what it is
    set -l section $argv[1]
    command $argv[2..] --help 2>/dev/null | sed -n "/^$section:/,/^\$/s/^  \([^ ]*\).*  \(.*\)/\1\t\2/p"
end

function __vela_options
    __vela_help Options $argv | sed -n 's/^\(-h,\)*\(--[a-z-]*\).*\t/\2\t/p'
end

function __vela_words
    commandline -opc | string match -v -- '-*'
end

function __vela_complete
    set -l words (__vela_words)
    if test (count $words) -eq 1
        __vela_help Subcommands $words[1]
        __vela_options $words[1]
    else if contains -- $words[2] vela composer describe; and test (count $words) -eq 2
        set -l interface $words[2]
        test $interface = describe; and set interface '[a-z]*'
        command $words[1] list 2>/dev/null |
            sed -n "/^record/d; s/^$interface [^ ]* \([A-Za-z0-9]*\)(.*/\1/p" | sort -u
    else
        __vela_options $words[1] $words[2]
    end
end

complete -c velactl -n 'not contains -- (__vela_words)[2] session replay screenshot' -f
complete -c velactl -a '(__vela_complete)'
complete -c velahost -a '(__vela_options velahost)'
complete -c velahost -l chip -x -a 'simulated absent'
complete -c velahost -l fault -x -a '(velahost --fault help 2>&1 | sed -n "s/^  \([A-Za-z0-9]*\):.*/\1=/p")'
