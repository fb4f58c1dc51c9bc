_ardvrelayctl_offer() { # PATH OPTION_OR_NUMBER CUR
    local kind reply
    _ardvrelayctl_values "$1" "$2" || _ardvrelayctl_values - "$2" || return 0
    case $kind in
        words) mapfile -t COMPREPLY < <(compgen -W "${reply[*]}" -- "$3") ;;
        files)
            mapfile -t COMPREPLY < <(compgen -f -- "$3")
            compopt -o filenames 2>/dev/null
            ;;
    esac
}

# Where the words before the cursor have led: "command", the option that "expects" a value, and how many "arguments" there were.
_ardvrelayctl_walk() {
    local word kind reply
    for word in "$@"; do
        if [[ $word == "=" ]]; then # which readline splits off
            continue
        elif [[ $expects ]]; then
            expects=
        elif [[ $word == -* ]]; then
            if _ardvrelayctl_values "$command" "$word" || _ardvrelayctl_values - "$word"; then
                expects=$word
            fi
        else
            _ardvrelayctl_commands "$command"
            if [[ " ${reply[*]%%:*} " == *" $word "* ]]; then
                command=${command#-}
                command=${command:+$command }$word
            else
                arguments=$((arguments + 1))
            fi
        fi
    done
}

_ardvrelayctl() {
    local cur=${COMP_WORDS[COMP_CWORD]} command=- expects='' arguments=0 all reply
    COMPREPLY=()
    _ardvrelayctl_walk "${COMP_WORDS[@]:1:COMP_CWORD-1}"
    [[ $cur != "=" ]] || cur=''
    if [[ $expects ]]; then
        _ardvrelayctl_offer "$command" "$expects" "$cur"
    elif [[ $cur == -* ]]; then
        _ardvrelayctl_options "$command"
        all=${reply[*]%%:*}
        _ardvrelayctl_options -
        mapfile -t COMPREPLY < <(compgen -W "$all ${reply[*]%%:*}" -- "$cur" | sort -u)
    else
        _ardvrelayctl_commands "$command"
        if ((${#reply[@]})); then
            mapfile -t COMPREPLY < <(compgen -W "${reply[*]%%:*}" -- "$cur")
        else
            _ardvrelayctl_offer "$command" $((arguments + 1)) "$cur"
        fi
    fi
}

complete -F _ardvrelayctl ardvrelayctl
