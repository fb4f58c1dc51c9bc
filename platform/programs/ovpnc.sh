#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# usage: ovpnc.sh load|unload tethraa-tunnel
#
# Called by the relay library before it starts OpenVPN (load) and when the tunnel is given up (unload); by hand it does no harm. Promises, for IPv4 and
# IPv6, from the first load on and at every moment: what comes in by tun1000 is dropped unless the chain TETHRA_RELAY accepts it, and is never forwarded.
#
#   INPUT    -i tun1000 -j TETHRA_RELAY     at the top
#            -i tun1000 -j DROP             right behind
#   FORWARD  -i tun1000 -j DROP             at the top
#
# load also sees to /dev/net/tun, and empties the chain where there is no tun1000: what was accepted belonged to a tunnel that is gone. unload takes
# rules and chain away, but leaves the DROPs while there is a tun1000. A change is one step, so there is no gap; rules of others are never touched.
# Both may be repeated. Exit code: 0; 1 failed, with words on stderr, and what could be done is done; 2 wrong usage.
set -u
PATH=/usr/sbin:/usr/bin:/sbin:/bin
export PATH

# Reads a listing of the filter, prints the commands that make it as ACTION leaves it; nothing if it's so. load, too, removes our rules wherever they
# are and inserts them anew, in one step.
plan() { # ACTION
    awk -v action="$1" -v interface=tun1000 -v chain=TETHRA_RELAY '
        BEGIN {
            jump = "-i " interface " -j " chain
            drop = "-i " interface " -j DROP"
            wanted = "1 -A INPUT " jump "\n2 -A INPUT " drop "\n1 -A FORWARD " drop "\n"
            while ((getline line < "/proc/net/dev") > 0)
                if (line ~ "^ *" interface ":") has_interface = 1
        }
        $1 == "-N" && $2 == chain { has_chain = 1 }
        $1 == "-A" && $2 == chain { is_filled = 1 }
        $1 == "-A" { ++place[$2] }
        /^-A (INPUT|FORWARD) / {
            rule = substr($0, length("-A " $2 " ") + 1)
            if (rule == jump || rule == drop) {
                found[$2] = found[$2] place[$2] " " $0 "\n"
                if (rule == jump || action == "load" || !has_interface)
                    removals = removals "-D" substr($0, 3) "\n"
            }
        }
        END {
            is_stale = is_filled && !has_interface
            if (action == "unload") {
                printf "%s", removals
                if (has_chain) print "-F " chain "\n-X " chain
            } else if (!has_chain || is_stale || found["INPUT"] found["FORWARD"] != wanted) {
                if (!has_chain) print "-N " chain
                if (is_stale) print "-F " chain
                printf "%s", removals
                print "-I INPUT " drop "\n-I INPUT " jump "\n-I FORWARD " drop
            }
        }'
}

# Makes a family's filter as it should be, and looks whether it is: the commands take effect all at once or not at all. They are tried again in case
# somebody else changed the filter meanwhile.
arrange() { # PROGRAM ACTION
    for attempt in first second last; do
        rules=$("$1" -w 3 -S) && commands=$(printf '%s\n' "$rules" | plan "$2") || return 1
        [ -n "$commands" ] || return 0
        [ $attempt != last ] || return 1
        printf '%s\n' '*filter' "$commands" COMMIT | "$1-restore" -w 3 --noflush ||
            echo "ovpnc.sh: $1: the $attempt attempt failed" >&2
    done
}

# Opening the device loads its module where the kernel can do that by itself. Opening what isn't there would make a file of it.
can_open_device() { [ -c /dev/net/tun ] && (: <>/dev/net/tun) 2>/dev/null; }

provide_device() { can_open_device || { modprobe tun && can_open_device; }; }

failed=0
fail() {
    echo "ovpnc.sh: $1" >&2
    failed=1
}

case ${1:-}:${2:-}:$# in
load:tethraa-tunnel:2 | unload:tethraa-tunnel:2) ;;
*)
    echo "usage: ovpnc.sh load|unload tethraa-tunnel" >&2
    exit 2
    ;;
esac
# One after the other: each would take away what the other has listed. Whoever can't wait may try, as a change is made as a whole or not at all.
command exec 9<"$0" && flock -w 2 9
arrange /sbin/iptables "$1" || fail "$1 failed for IPv4"
arrange /sbin/ip6tables "$1" || [ ! -e /proc/net/if_inet6 ] || fail "$1 failed for IPv6"
[ "$1" != load ] || provide_device || fail "/dev/net/tun can't be opened"
exit $failed
