_ardvrelayctl_offer() { # PATH OPTION_OR_NUMBER
    local kind
    local -a reply
    _ardvrelayctl_values "$1" "$2" || _ardvrelayctl_values - "$2" || return 1
    case $kind in
        words) compadd -- "${reply[@]}" ;;
        files) _files ;;
        *) _message "a value" ;;
    esac
}

# Where the words before the cursor have led: "command", the option that "expects" a value, and how many "arguments" there were.
_ardvrelayctl_walk() {
    local word kind
    local -a reply
    for word in "$@"; do
        if [[ -n $expects ]]; then
            expects=
        elif [[ $word == -* ]]; then
            if _ardvrelayctl_values "$command" "$word" || _ardvrelayctl_values - "$word"; then
                expects=$word
            fi
        else
            _ardvrelayctl_commands "$command"
            if (( ${reply[(I)$word:*]} )); then
                command=${command#-}
                command=${command:+$command }$word
            else
                (( ++arguments ))
            fi
        fi
    done
}

_ardvrelayctl() {
    local command=- expects= option
    local -a reply own
    integer arguments=0
    _ardvrelayctl_walk "${(@)words[2,CURRENT-1]}"
    if [[ -n $expects ]]; then
        _ardvrelayctl_offer "$command" "$expects"
    elif [[ $PREFIX == --*=* ]]; then
        option=${PREFIX%%=*}
        compset -P '*='
        _ardvrelayctl_offer "$command" "$option"
    elif [[ $PREFIX == -* ]]; then
        _ardvrelayctl_options "$command"
        own=("${reply[@]}")
        _ardvrelayctl_options -
        own=(${(u)own} ${reply:|own})
        _describe -o option own
    else
        _ardvrelayctl_commands "$command"
        if (( $#reply )); then
            _describe command reply
        else
            _ardvrelayctl_offer "$command" $(( arguments + 1 ))
        fi
    fi
}

_ardvrelayctl "$@"
