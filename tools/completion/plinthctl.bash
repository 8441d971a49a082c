# SPDX-License-Identifier: BSD-3-Clause
# bash completion for plinthctl: its commands, the parts of "storage" and the
# options. Installed as "plinthctl" where bash-completion loads it on demand.

_plinthctl()
{
    local current=${COMP_WORDS[COMP_CWORD]}
    local commands='status features sims storage monitor help'
    local options='--json --help -h --version'
    local parts='internal user system external drives quota'

    # The command is the first word that is not an option.
    local i command=
    for ((i = 1; i < COMP_CWORD; i++)); do
        if [[ ${COMP_WORDS[i]} != -* ]]; then
            command=${COMP_WORDS[i]}
            break
        fi
    done

    if [[ $current == -* ]]; then
        COMPREPLY=($(compgen -W "$options" -- "$current"))
        return
    fi
    case $command in
    '')
        COMPREPLY=($(compgen -W "$commands" -- "$current"))
        ;;
    storage)
        # Each part once.
        local given=" ${COMP_WORDS[*]:1:COMP_CWORD-1} " part left=
        for part in $parts; do
            [[ $given == *" $part "* ]] || left+=" $part"
        done
        COMPREPLY=($(compgen -W "$left" -- "$current"))
        ;;
    *)
        COMPREPLY=()
        ;;
    esac
}
complete -F _plinthctl plinthctl
