#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Completes command lines as bash does: each line of input up to its end, where the cursor stands. Prints what is offered, a word a line,
# and a line "." behind each.
#
# usage: complete.bash FILE < LINES
set -euo pipefail
# shellcheck disable=SC1090  # the completion
source "${1:?usage: complete.bash FILE}"
function=$(complete -p ardvrelayctl | sed -n 's/.* -F \([^ ]*\) .*/\1/p')
while IFS= read -r line; do
    # As readline splits it: "=" is a word of its own, and a blank at the end begins an empty one.
    read -ra COMP_WORDS <<<"${line//=/ = }"
    [[ $line != *" " ]] || COMP_WORDS+=("")
    COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
    COMPREPLY=()
    "$function" || true
    [ ${#COMPREPLY[@]} = 0 ] || printf '%s\n' "${COMPREPLY[@]}"
    echo .
done
