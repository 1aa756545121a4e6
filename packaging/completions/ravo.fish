# Completion of ravo(1) for fish.

set -l commands devices doctor info list play plot compare convert annotations nst score run report serve

# The names in one of the tables of "ravo list".
function __ravo_builtin
    ravo list 2>/dev/null | awk -v wanted="$argv[1]" '
        $1 == "number" { table = $2; next }
        table == wanted && NF > 0 { print $2 }'
end

# The long options of the command on the line, by its own --help.
function __ravo_options
    set -l words (commandline -opc)
    ravo $words[2] --help 2>/dev/null | string match -rg '^  (?:-.,)?(--[a-z-]+)'
end

function __ravo_material
    printf '%s\n' sine triangle square rectangle-pulse triangle-pulse calibration staircase
    string replace -r '^' builtin: (__ravo_builtin record)
end

complete -c ravo -n "not __fish_seen_subcommand_from $commands" -f -a "$commands"
complete -c ravo -n '__fish_seen_subcommand_from serve' -l root -x -a '(__fish_complete_directories)'
complete -c ravo -n '__fish_seen_subcommand_from serve' -l token-file -r
complete -c ravo -n "__fish_seen_subcommand_from $commands; and string match -q -- '-*' (commandline -ct)" \
    -f -a '(__ravo_options)'
complete -c ravo -n '__fish_seen_subcommand_from info play plot compare convert' -a '(__ravo_material)'
complete -c ravo -n '__fish_seen_subcommand_from info play plot compare convert' -l noise -x \
    -a '(__ravo_builtin noise)'
complete -c ravo -n '__fish_seen_subcommand_from plot' -l paper-gain -x -a '5 10 20'
