# bash completion of zaldeploy. Commands and options are those that its --help tells.

# Prints the words of a help text that look like this.
_zaldeploy_words() { "$1" $2 --help 2>/dev/null | grep -oE -- "$3" | tr -d ' ' | sort -u; }

_zaldeploy() {
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} commands command= word
    commands=$(_zaldeploy_words "$1" '' '^  [a-z]+ ')
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        [[ " "${commands//$'\n'/ }" " == *" $word "* ]] && command=$word && break
    done
    compopt -o filenames
    case $previous in
        --server | --state) COMPREPLY=($(compgen -d -- "$current")) && return ;;
        --log | --trust) COMPREPLY=($(compgen -f -- "$current")) && return ;;
        --timeout | --wait | --only) return ;;
    esac
    if [[ $current == -* ]]; then
        COMPREPLY=($(compgen -W "$(_zaldeploy_words "$1" "${command:-plan}" '--[a-z-]+')" -- "$current"))
    elif [[ $command ]]; then
        COMPREPLY=($(compgen -d -- "$current"))
    else
        COMPREPLY=($(compgen -W "$commands" -- "$current") $(compgen -d -- "$current"))
    fi
}

complete -F _zaldeploy zaldeploy
