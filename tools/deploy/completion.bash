# bash completion of zaldeploy. Commands and options are those that its --help tells.

# Prints the words of a help text that look like this.
_zaldeploy_words() { "$1" $2 --help 2>/dev/null | grep -oE -- "$3" | tr -d ' ' | sort -u; }

# Prints what restore can put back of a server, whose folder is empty for this one: devices and kept images.
_zaldeploy_kept() { (cd "$1/var/lib/flashlib/backup" && ls -d ./*.bin | sed 's,^\./,,; s,\([^_]*\)_.*,\1\n&,') 2>/dev/null; }

_zaldeploy() {
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} commands command= word i server=
    commands=$(_zaldeploy_words "$1" '' '^  [a-z]+ ')
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        [[ " "${commands//$'\n'/ }" " == *" $word "* ]] && command=$word && break
    done
    for ((i = 1; i < COMP_CWORD - 1; i++)); do
        [[ ${COMP_WORDS[i]} == --server ]] && server=${COMP_WORDS[i + 1]}
    done
    compopt -o filenames
    case $previous in
        --server | --state) COMPREPLY=($(compgen -d -- "$current")) && return ;;
        --log | --trust) COMPREPLY=($(compgen -f -- "$current")) && return ;;
        --timeout | --wait | --only) return ;;
    esac
    if [[ $current == -* ]]; then
        COMPREPLY=($(compgen -W "$(_zaldeploy_words "$1" "${command:-plan}" '--[a-z-]+')" -- "$current"))
    elif [[ $command == restore ]]; then
        COMPREPLY=($(compgen -W "$(_zaldeploy_kept "$server")" -- "$current"))
    elif [[ $command ]]; then
        COMPREPLY=($(compgen -d -- "$current"))
    else
        COMPREPLY=($(compgen -W "$commands" -- "$current") $(compgen -d -- "$current"))
    fi
}

complete -F _zaldeploy zaldeploy
