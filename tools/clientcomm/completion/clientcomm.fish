# Completion of clientcomm for fish. What there is to complete, the program says in its help.

function __clientcomm_commands
    clientcomm --help 2>/dev/null | sed -n '/^Commands:/,/^$/s/^  \([a-z]*\)  *\(.*\)/\1\t\2/p'
end

function __clientcomm_options
    set -l words (commandline -opc)
    test (count $words) -ge 2; or return
    clientcomm $words[2] --help 2>/dev/null |
        sed -n 's/^  \(--[a-z-]*\)\(=[A-Z]*\)\{0,1\}  *\(.*\)/\1\t\3/p'
end

complete -c clientcomm -f
complete -c clientcomm -n __fish_use_subcommand -a '(__clientcomm_commands)'
complete -c clientcomm -n 'not __fish_use_subcommand' -a '(__clientcomm_options)'
complete -c clientcomm -n '__fish_seen_subcommand_from check new' -a '(__fish_complete_directories)'
complete -c clientcomm -n '__fish_seen_subcommand_from new' -a 'host helper'
