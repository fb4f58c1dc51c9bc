#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# usage: down.sh [WORD]...
#
# Called by OpenVPN (--down) after the tunnel's interface was closed, with words about it that aren't needed here. Promises: the tunnel information
# file is gone if this OpenVPN wrote it, and stands if another did: a successor may be up already. The daemon learns of the end by SIGCHLD.
set -u
PATH=/usr/sbin:/usr/bin:/sbin:/bin
export PATH
info=/tmp/.ardv_tethra_tunnel_info

# What stands there may be anybody's: no link is followed, no pipe waited for.
if dd if="$info" iflag=nofollow,nonblock bs=4096 count=1 2>/dev/null | grep -qxF "openvpn_pid=\"$PPID\""; then
    rm -f "$info"
fi
