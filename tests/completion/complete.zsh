#!/usr/bin/zsh -f
# SPDX-License-Identifier: Apache-2.0
# Completes command lines by an interactive zsh on a terminal of its own: each line of input up to its end, where the cursor stands. Prints
# what is offered, a word a line, and a line "." behind each.
#
# usage: complete.zsh FOLDER < LINES
zmodload zsh/zpty
zpty shell zsh -f -i
wait_for() { # WORD: reads what the shell prints up to a line of this word
    local line
    found=()
    while zpty -r shell line; do
        line=${line%%[$'\r\n']#}
        [[ $line != $1 ]] || return 0
        [[ $line != 'offered '* ]] || found+=(${line#offered })
    done
    print -u 2 "zsh has ended"
    exit 1
}
setopt extendedglob
zpty -w shell "
PROMPT= RPROMPT= ; stty -echo cols 1000; unsetopt zle_bracketed_paste 2>/dev/null
fpath=(${(q)1:A} \$fpath); autoload -Uz compinit; compinit -D -u
bindkey '^I' complete-word; bindkey '^U' kill-whole-line
LISTMAX=10000; zstyle ':completion:*' list-grouped false; setopt no_auto_menu no_list_beep no_always_last_prompt
compadd() {
    if [[ \" \${(j: :)@[1,(i)(-|--)]} \" == *' -'[a-zA-Z]#[OAD]' '* ]]; then
        builtin compadd \"\$@\"
        return
    fi
    local -a hits
    builtin compadd -A hits \"\$@\"
    [[ \$#hits == 0 ]] || print -l -- '' \"\${(@)hits/#/offered }\" ''
    return 1
}
finish() { print -l -- '' finished '' }
complete-all() { comppostfuncs=(finish); _main_complete }
zle -C complete-all complete-word complete-all
bindkey '^I' complete-all
print -l -- '' started ''
"
wait_for started
while IFS= read -r line; do
    zpty -w -n shell $'\x15'"$line"$'\t'
    wait_for finished
    (( $#found )) && print -l -- "${(@u)found}"
    print .
done
zpty -d shell
