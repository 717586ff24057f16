# Completion for bash: commands, options with their values, device paths.

# Offers block devices and the folders on the way to them.
_kivclaim_devices() {
    local path
    for path in "${1:-/dev/}"*; do
        if [ -d "$path" ] || [ -b "$path" ]; then
            COMPREPLY+=("$path")
        fi
    done
    compopt -o filenames 2>/dev/null || true
}

# Offers words after what is there of a list separated by commas.
_kivclaim_list() {
    local chosen=${1%"${1##*,}"}
    mapfile -t COMPREPLY < <(compgen -P "$chosen" -W "$2" -- "${1##*,}")
    compopt -o nospace 2>/dev/null || true
}

_kivclaim() {
    local commands='list claim is-partition partition whole prefixes explain audit active-path record diff report watch'
    local options='-h --help --version --trace --trace-file --no-snapshot --resolve --no-warn --module --sysroot'
    options+=' --check-module --check-host'
    local list_options='-a --all -m --marked -S --stacks -o --output -O --output-all -b --bytes -x --sort --luns'
    list_options+=' -T --tree -s --inverse -J --json -r --raw -P --pairs -n --noheadings --color --strict'
    local columns='DEVICE STACK LEVEL PART WHOLE MARK KNAME MAJ:MIN TYPE SIZE RO RM VENDOR MODEL REV SERIAL WWN HCTL'
    columns+=' TRAN STATE PKNAME MOUNTPOINTS FSTYPE LABEL UUID MAP PATHS DMUUID LINKS UNSURE'
    local quirks='prefix-anywhere name-decides any-mapping failed-listing dashed-volume unlisted-volume stale-list'
    quirks+=' path-of-a-map last-digit six-characters missing-neighbour partition-like-name release-decides'
    quirks+=' unknown-release'
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} command='' i
    COMPREPLY=()

    case $before in
        --trace) mapfile -t COMPREPLY < <(compgen -W '1 2 3 6' -- "$word") && return ;;
        --trace-file | --module | --check-module | --check-host) compopt -o default 2>/dev/null || mapfile -t COMPREPLY < <(compgen -f -- "$word") && return ;;
        --sysroot) compopt -o default 2>/dev/null || mapfile -t COMPREPLY < <(compgen -f -- "$word") && return ;;
        -o | --output)
            if [[ " ${COMP_WORDS[*]} " == *' report '* ]]; then
                compopt -o default 2>/dev/null || mapfile -t COMPREPLY < <(compgen -f -- "$word") && return
            fi
            _kivclaim_list "$word" "$columns" && return
            ;;
        -x | --sort) mapfile -t COMPREPLY < <(compgen -W "$columns" -- "$word") && return ;;
        -S | --stacks) _kivclaim_list "$word" 'powerpath device-mapper native none' && return ;;
        --quirk | --no-quirk) mapfile -t COMPREPLY < <(compgen -W "$quirks" -- "$word") && return ;;
        --color) mapfile -t COMPREPLY < <(compgen -W 'auto always never' -- "$word") && return ;;
    esac

    for ((i = 1; i < COMP_CWORD; i++)); do
        case ${COMP_WORDS[i]} in
            --trace | --trace-file | --module | --check-module | --check-host | --sysroot | -o | --output | -x | --sort | -S | --stacks | --color | --quirk | --no-quirk | --volume-manager) i=$((i + 1)) ;;
            -*) ;;
            *) command=${COMP_WORDS[i]} && break ;;
        esac
    done

    case $command in
        # Options without a command are those of `list`.
        '' | list) options+=" $list_options" ;;
        audit) options+=' -J --json -d --only-differences --no-fold --quirk --no-quirk --openmetrics' ;;
        record) options+=' --redact --volume-manager' ;;
        diff | watch) options+=' -J --json' ;;
        report) options+=' -o --output' ;;
        active-path) options+=' -w --waited -y --yes -v --verbose' ;;
    esac
    if [[ $word == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$options" -- "$word")
    elif [ -z "$command" ]; then
        mapfile -t COMPREPLY < <(compgen -W "$commands" -- "$word")
    elif [ "$command" = record ] || [ "$command" = diff ]; then
        compopt -o default 2>/dev/null || mapfile -t COMPREPLY < <(compgen -f -- "$word")
    elif [[ $command != @(prefixes|report|watch) ]]; then
        _kivclaim_devices "$word"
    fi
}

complete -F _kivclaim kivclaim
