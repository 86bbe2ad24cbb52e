# Bash completion of quire: subcommands, their options, the values of options that take a fixed
# set, folders for -d, PNG files for the preview images, and PDF files. The subcommands and
# options are read from the program's own help (once a shell), so they cannot drift from it.

_quire_help_cache=()

# The help of `quire [SUBCOMMAND] --help`, read once per command and subcommand.
_quire_help()
{
    local key="$1 $2" i
    for ((i = 0; i < ${#_quire_help_cache[@]}; i += 2)); do
        if [[ ${_quire_help_cache[i]} == "$key" ]]; then
            printf '%s\n' "${_quire_help_cache[i + 1]}"
            return
        fi
    done
    local text
    if [[ -n $2 ]]; then
        text=$("$1" "$2" --help 2>/dev/null)
    else
        text=$("$1" --help 2>/dev/null)
    fi
    _quire_help_cache+=("$key" "$text")
    printf '%s\n' "$text"
}

_quire()
{
    local cur prev words cword
    _init_completion -n =: || return

    local quire=${words[0]}
    quire=${quire/#\~/$HOME}
    local subcommand="" i
    for ((i = 1; i < cword; i++)); do
        if [[ ${words[i]} == -- && i -eq 1 ]]; then
            _filedir pdf
            return
        fi
        if [[ ${words[i]} != -* ]]; then
            subcommand=${words[i]}
            break
        fi
    done

    if [[ -z $subcommand ]]; then
        if [[ $cur == -* ]]; then
            COMPREPLY=($(compgen -W '--help --version --' -- "$cur"))
            return
        fi
        local names
        names=$(_quire_help "$quire" "" | sed -n '/^Usage:$/,/^$/s/^  quire \([a-z][a-z]*\).*/\1/p' | awk '!seen[$0]++')
        COMPREPLY=($(compgen -W "$names" -- "$cur"))
        # Without a subcommand, documents open in the launcher.
        _filedir pdf
        return
    fi

    local help
    help=$(_quire_help "$quire" "$subcommand")
    # The value an option takes, as the help names it: "  -o, --output <OUTPUT>  ...".
    if [[ $prev == -* ]]; then
        local line names value=""
        while IFS= read -r line; do
            [[ $line == "  -"*"<"*">"* ]] || continue
            names=${line%%<*}
            names=" ${names//,/ } "
            if [[ $names == *" $prev "* ]]; then
                value=${line#*<}
                value=${value%%>*}
                break
            fi
        done <<<"$help"
        if [[ -n $value ]]; then
            case $value in
            *\|*) COMPREPLY=($(compgen -W "${value//|/ }" -- "$cur")) ;;
            POS) COMPREPLY=($(compgen -W 'bottom-left bottom-right top-left top-right center' -- "$cur")) ;;
            DIR) _filedir -d ;;
            OUT.png) _filedir png ;;
            OUTPUT) _filedir pdf ;;
            FILE) if [[ $prev == --profile ]]; then _filedir json; else _filedir; fi ;;
            esac
            return
        fi
    fi
    if [[ $cur == -* ]]; then
        local options
        options=$(printf '%s\n' "$help" | sed -n 's/^  \(-[a-zA-Z], \)\{0,1\}\(--[a-z-]*\).*/\2/p')
        COMPREPLY=($(compgen -W "$options" -- "$cur"))
        return
    fi
    _filedir pdf
}
complete -F _quire quire
