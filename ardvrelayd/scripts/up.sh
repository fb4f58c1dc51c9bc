#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# usage: up.sh PID
#
# Called by OpenVPN (--route-up) once the tunnel's interface has its addresses; PID is the daemon's. Promises: the tunnel information file is there as
# a whole, made of checked values alone, before the daemon is told by SIGUSR2, and nobody is told but the parent of this OpenVPN; and no route leads into
# the tunnel but that of its own network. OpenVPN waits for
# this script, only notes a failure in its log, and gives it an environment without a PATH in which the relay server has variables of its own.
set -u
umask 077
PATH=/usr/sbin:/usr/bin:/sbin:/bin
export PATH
info=/tmp/.ardv_tethra_tunnel_info

fail() {
    echo "up.sh: $1" >&2
    exit 1
}

# checked VALUE CHARACTERS LENGTH: the value if it has no other characters and isn't longer, else nothing.
checked() {
    case $1 in *[!$2]*) return ;; esac
    [ ${#1} -gt "$3" ] || printf %s "$1"
}

address() { checked "$1" 0-9A-Fa-f.: 45; }
number() { checked "$1" 0-9 5; }

# first_host ADDRESS NETMASK: the first host of the network; nothing where that's the address itself. Run in a subshell, for IFS.
first_host() {
    case $1.$2 in *[!0-9.]* | *.255.255.255.255) return ;; esac
    own=$1
    IFS=.
    # shellcheck disable=SC2086  # into eight numbers
    set -- $1 $2
    [ $# = 8 ] || return
    for octet; do
        case $octet in '' | 0?* | ????*) return ;; esac # a leading zero would make it octal
        [ "$octet" -le 255 ] || return
    done
    host=$(($1 & $5)).$(($2 & $6)).$(($3 & $7)).$((($4 & $8) + 1))
    [ "$host" = "$own" ] || echo "$host"
}

# The relay's address inside the tunnel: as the server names it (push "setenv-safe peer_ip ADDRESS"); the gateway, there only with a pushed route; the
# far end of topologies that have one; else computed, since a subnet without a route names nobody; with IPv6 alone its far end.
peer_address() {
    for source in "${OPENVPN_peer_ip:-}" "${route_vpn_gateway:-}" "${ifconfig_remote:-}" \
        "$(first_host "${ifconfig_local:-}" "${ifconfig_netmask:-}")" "${ifconfig_ipv6_remote:-}"; do
        source=$(address "$source")
        [ -z "$source" ] || break
    done
    printf %s "$source"
}

# Where else the device's packets go is not for the relay to say: of the routes by the tunnel, only those of its own network stay. A default route of the
# relay's has taken the place of the device's, which only the end of OpenVPN brings back.
drop_pushed_routes() {
    for family in -4 -6; do
        ip "$family" route show dev "${dev:-tun1000}" 2>/dev/null | while read -r destination rest; do
            case " $rest " in *' proto kernel '*) continue ;; esac
            [ "$destination" != default ] || return 1
            ip "$family" route del "$destination" dev "${dev:-tun1000}"
        done || return 1
    done
}

command -v ip >/dev/null || fail "there is no program ip"
drop_pushed_routes || {
    kill -s TERM "$PPID"
    fail "the relay takes the default route; the tunnel is given up"
}

# In a folder that all may write to: a name that nobody else has, then one rename, which replaces whatever stands there.
draft=$(mktemp "$info.XXXXXX") || fail "there can be no draft of $info"
trap 'rm -f "$draft"' EXIT
trap 'exit 1' HUP INT TERM
cat >"$draft" <<END || fail "$draft can't be written"
peer_ip="$(peer_address)"
peer_ip6="$(address "${ifconfig_ipv6_remote:-}")"
local_ip="$(address "${ifconfig_local:-}")"
local_ip6="$(address "${ifconfig_ipv6_local:-}")"
relay_ip="$(address "${trusted_ip:-${trusted_ip6:-}}")"
relay_port="$(number "${trusted_port:-}")"
dev="$(checked "${dev:-}" 0-9A-Za-z_.- 15)"
mtu="$(number "${tun_mtu:-}")"
openvpn_pid="$PPID"
END
# The one thing that a file can't replace is a folder. Anybody may put one there, and another behind the one that is moved aside.
for attempt in first second third last; do
    mv -fT "$draft" "$info" 2>/dev/null && break
    [ $attempt != last ] || fail "$info can't be replaced"
    aside=$(mktemp -d "$info.XXXXXX") && { mv -fT "$info" "$aside" 2>/dev/null || rmdir "$aside"; }
done

# The number of a daemon that is gone may be another process's by now.
case ${1:-} in '' | *[!0-9]* | 0 | 1) fail "usage: up.sh PID" ;; esac
parent=$(sed -n 's/^PPid:[[:space:]]*//p' "/proc/$PPID/status")
[ "$parent" = "$1" ] || fail "process $1 is no longer OpenVPN's parent"
kill -s USR2 "$1"
