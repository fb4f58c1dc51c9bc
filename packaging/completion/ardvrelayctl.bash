# SPDX-License-Identifier: Apache-2.0
# Completion of ardvrelayctl for bash. Made by packaging/completion/generate; not to be edited.

# The commands below a command. "-" is the tool itself.
_ardvrelayctl_commands() {
    reply=()
    case $1 in
        '-') reply=('status:Show whether the daemon runs, is logged in, and what it relays' 'doctor:Look for what is wrong, and say what to do about it' 'report:Show what the daemon says of itself; of one that does not answer, what is found' 'wait:Wait until the daemon has come so far' 'reload:Have the daemon read its configuration again' 'stop:End the daemon, and wait until it is gone' 'log:Switch the daemon'\''s debug log on and off' 'config:Show, change and check the configuration' 'service:Choose the services that are reached through the relay' 'permission:Permit or deny groups of services' 'tunnel:Show the tunnel to the relay, and what it lets through' 'alias:Keep the short name by which the device is reached' 'network:Show the device'\''s network' 'web:Change the device'\''s web server' 'identity:Show or make the device'\''s identity at the relay service' 'server-id:Show the device'\''s identifier at the service, if the service is offered' 'portal-domain:Show the domain below which the service'\''s portal is') ;;
        'log') reply=('start:Have the daemon log everything, into this file' 'stop:Back to the usual log') ;;
        'config') reply=('show:Show the configuration that is in effect' 'get:Show the value of one key' 'set:Change one key, and nothing else in the file' 'unset:Bring one key, or a group of keys, back to the default' 'check:Check the main configuration and the device'\''s env.conf and services.conf, which stand in /usr/ardv/etc/ardvrelayd whatever --config says; nothing is changed') ;;
        'service') reply=('list:Show the services that are offered' 'add:Offer one more service' 'remove:No longer offer a service' 'generate:Offer every service that is permitted and on, and no other') ;;
        'permission') reply=('list:Show the groups, and what is permitted' 'allow:Permit the services of a group' 'deny:Deny the services of a group') ;;
        'tunnel') reply=('status:Show the tunnel'\''s status, relay and addresses, and what is open' 'rules:Show which services are open in the tunnel, and check the packet filter') ;;
        'alias') reply=('map:Map the alias to this device' 'keep-alive:Keep the alias alive: tell the server that the device is still there' 'query:Ask the server who holds the alias' 'delete:Give the alias up' 'status:Show the outcome of the last map, keep-alive or delete' 'update:Have the running daemon map the alias anew, at once') ;;
        'network') reply=('show:Show the network as the servers are told it') ;;
        'web') reply=('probe:The location by which clients find out that they reach this very device') ;;
        'web probe') reply=('on:Have the web server answer the probe' 'off:Have the web server no longer answer it') ;;
        'identity') reply=('show:Show the identity' 'init:Make an identity for a machine that has none') ;;
    esac
}

# The options of a command.
_ardvrelayctl_options() {
    reply=()
    case $1 in
        '-') reply=('-h:Print this help message and exit' '--help:Print this help message and exit' '--version:Display program version information and exit' '--config:Main configuration file' '--pid-file:The daemon'\''s pid file, where it was started with another one' '--verbose:Show the library'\''s log on standard error') ;;
        'status') reply=('-h:Print this help message and exit' '--help:Print this help message and exit' '--json:Print JSON, for programs' '--watch:Show it again whenever it changes, until interrupted; as JSON, in one line each' '--service:The state of this service alone') ;;
        'doctor') reply=('-h:Print this help message and exit' '--help:Print this help message and exit' '--json:Print JSON, for programs') ;;
        'report') reply=('-h:Print this help message and exit' '--help:Print this help message and exit' '--json:Print JSON, for programs') ;;
        'wait') reply=('-h:Print this help message and exit' '--help:Print this help message and exit' '--json:Print JSON, for programs' '--for:What to wait for: a session with the service, the configured alias mapped, or a relay tunnel' '--timeout:How many seconds at most; 0 looks once') ;;
        'reload') reply=('-h:Print this help message and exit' '--help:Print this help message and exit' '--json:Print JSON, for programs') ;;
        'stop') reply=('-h:Print this help message and exit' '--help:Print this help message and exit' '--json:Print JSON, for programs' '--timeout:How many seconds to wait at most') ;;
        'log') reply=('-h:Print this help message and exit' '--help:Print this help message and exit') ;;
        'log start') reply=('-h:Print this help message and exit' '--help:Print this help message and exit' '--json:Print JSON, for programs') ;;
        'log stop') reply=('-h:Print this help message and exit' '--help:Print this help message and exit' '--json:Print JSON, for programs') ;;
        'config') reply=('-h:Print this help message and exit' '--help:Print this help message and exit') ;;
        'config show') reply=('-h:Print this help message and exit' '--help:Print this help message and exit' '--json:Print JSON, for programs' '--full:Show also what isn'\''t stored, such as the network' '--show-secrets:Show secrets, which are "***" otherwise') ;;
        'config get') reply=('-h:Print this help message and exit' '--help:Print this help message and exit' '--json:Print JSON, for programs' '--show-secrets:Show secrets, which are "***" otherwise') ;;
        'config set') reply=('-h:Print this help message and exit' '--help:Print this help message and exit' '--json:Print JSON, for programs') ;;
        'config unset') reply=('-h:Print this help message and exit' '--help:Print this help message and exit' '--json:Print JSON, for programs') ;;
        'config check') reply=('-h:Print this help message and exit' '--help:Print this help message and exit' '--json:Print JSON, for programs' '--strict:Count warnings as errors') ;;
        'service') reply=('-h:Print this help message and exit' '--help:Print this help message and exit') ;;
        'service list') reply=('-h:Print this help message and exit' '--help:Print this help message and exit' '--json:Print JSON, for programs' '--all:Show every service that the relay can carry, and why it is not offered') ;;
        'service add') reply=('-h:Print this help message and exit' '--help:Print this help message and exit' '--json:Print JSON, for programs') ;;
        'service remove') reply=('-h:Print this help message and exit' '--help:Print this help message and exit' '--json:Print JSON, for programs') ;;
        'service generate') reply=('-h:Print this help message and exit' '--help:Print this help message and exit' '--json:Print JSON, for programs') ;;
        'permission') reply=('-h:Print this help message and exit' '--help:Print this help message and exit') ;;
        'permission list') reply=('-h:Print this help message and exit' '--help:Print this help message and exit' '--json:Print JSON, for programs') ;;
        'permission allow') reply=('-h:Print this help message and exit' '--help:Print this help message and exit' '--json:Print JSON, for programs') ;;
        'permission deny') reply=('-h:Print this help message and exit' '--help:Print this help message and exit' '--json:Print JSON, for programs') ;;
        'tunnel') reply=('-h:Print this help message and exit' '--help:Print this help message and exit') ;;
        'tunnel status') reply=('-h:Print this help message and exit' '--help:Print this help message and exit' '--json:Print JSON, for programs') ;;
        'tunnel rules') reply=('-h:Print this help message and exit' '--help:Print this help message and exit' '--json:Print JSON, for programs') ;;
        'alias') reply=('-h:Print this help message and exit' '--help:Print this help message and exit') ;;
        'alias map') reply=('-h:Print this help message and exit' '--help:Print this help message and exit' '--json:Print JSON, for programs' '--alias:Another alias than the configured one' '--url:Another alias server than the configured one: http:// or https://' '--dry-run:Print the request, with its secrets masked, and send nothing' '--account:The owner'\''s account at the account service' '--account-id:The owner'\''s account number' '--password-file:File, closed to other users, whose first line is the account'\''s password; - for standard input' '--auth-key-file:File, closed to other users, whose first line is an authorisation key; - for standard input' '--force:Take the alias over from another device of the same account') ;;
        'alias keep-alive') reply=('-h:Print this help message and exit' '--help:Print this help message and exit' '--json:Print JSON, for programs' '--alias:Another alias than the configured one' '--url:Another alias server than the configured one: http:// or https://' '--dry-run:Print the request, with its secrets masked, and send nothing') ;;
        'alias query') reply=('-h:Print this help message and exit' '--help:Print this help message and exit' '--json:Print JSON, for programs' '--alias:Another alias than the configured one' '--url:Another alias server than the configured one: http:// or https://' '--dry-run:Print the request, with its secrets masked, and send nothing') ;;
        'alias delete') reply=('-h:Print this help message and exit' '--help:Print this help message and exit' '--json:Print JSON, for programs' '--alias:Another alias than the configured one' '--url:Another alias server than the configured one: http:// or https://' '--dry-run:Print the request, with its secrets masked, and send nothing') ;;
        'alias status') reply=('-h:Print this help message and exit' '--help:Print this help message and exit' '--json:Print JSON, for programs' '--alias:Another alias than the configured one') ;;
        'alias update') reply=('-h:Print this help message and exit' '--help:Print this help message and exit' '--json:Print JSON, for programs') ;;
        'network') reply=('-h:Print this help message and exit' '--help:Print this help message and exit') ;;
        'network show') reply=('-h:Print this help message and exit' '--help:Print this help message and exit' '--json:Print JSON, for programs') ;;
        'web') reply=('-h:Print this help message and exit' '--help:Print this help message and exit') ;;
        'web probe') reply=('-h:Print this help message and exit' '--help:Print this help message and exit') ;;
        'web probe on') reply=('-h:Print this help message and exit' '--help:Print this help message and exit' '--json:Print JSON, for programs' '--seed:Text of which the answer'\''s identifier is made; else the serial number') ;;
        'web probe off') reply=('-h:Print this help message and exit' '--help:Print this help message and exit' '--json:Print JSON, for programs') ;;
        'identity') reply=('-h:Print this help message and exit' '--help:Print this help message and exit') ;;
        'identity show') reply=('-h:Print this help message and exit' '--help:Print this help message and exit' '--json:Print JSON, for programs' '--show-secrets:Show token and API key, which are "***" otherwise') ;;
        'identity init') reply=('-h:Print this help message and exit' '--help:Print this help message and exit' '--json:Print JSON, for programs' '--serial:The serial number; else a random one' '--mac:The MAC address; else that of the first wired interface' '--api-key-file:File, closed to other users, whose first line is the API key; - for standard input; else a random key' '--force:Replace the identity that is there') ;;
        'server-id') reply=('-h:Print this help message and exit' '--help:Print this help message and exit' '--json:Print JSON, for programs') ;;
        'portal-domain') reply=('-h:Print this help message and exit' '--help:Print this help message and exit' '--json:Print JSON, for programs') ;;
    esac
}

# What is expected behind an option of a command, or as its n-th argument. False: nothing.
_ardvrelayctl_values() {
    reply=()
    kind=
    case "$1 $2" in
        '- --config') kind=files ;;
        '- --pid-file') kind=files ;;
        'status --service') kind=text ;;
        'wait --for') kind=words; reply=(login alias tunnel) ;;
        'wait --timeout') kind=text ;;
        'stop --timeout') kind=text ;;
        'log start 1') kind=files ;;
        'config get 1') kind=words; reply=(tethra.enabled support_channel.enabled serverID server_alias.alias server_alias.url server_alias.poll_seconds server_kova.account server_kova.host server_smartdns.enabled server_global.host server_global.ip server_global.protocol server_global.port server_global.page server_control.host server_control.ip server_control.protocol server_control.port server_control.page server_waitcmd.host server_waitcmd.ip server_waitcmd.protocol server_waitcmd.port server_waitcmd.page service log_level log_file disable_holepunch) ;;
        'config set 1') kind=words; reply=(tethra.enabled support_channel.enabled serverID server_alias.alias server_alias.url server_alias.poll_seconds server_kova.account server_kova.host server_smartdns.enabled server_global.host server_global.ip server_global.protocol server_global.port server_global.page server_control.host server_control.ip server_control.protocol server_control.port server_control.page server_waitcmd.host server_waitcmd.ip server_waitcmd.protocol server_waitcmd.port server_waitcmd.page service log_level log_file disable_holepunch) ;;
        'config set 2') kind=text ;;
        'config unset 1') kind=words; reply=(tethra.enabled support_channel.enabled serverID server_alias.alias server_alias.url server_alias.poll_seconds server_kova.account server_kova.host server_smartdns.enabled server_global.host server_global.ip server_global.protocol server_global.port server_global.page server_control.host server_control.ip server_control.protocol server_control.port server_control.page server_waitcmd.host server_waitcmd.ip server_waitcmd.protocol server_waitcmd.port server_waitcmd.page service log_level log_file disable_holepunch) ;;
        'config check 1') kind=files ;;
        'service add 1') kind=text ;;
        'service remove 1') kind=text ;;
        'permission allow 1') kind=words; reply=(mobile_apps pictara filara file_sharing hos_portal photo_portal) ;;
        'permission deny 1') kind=words; reply=(mobile_apps pictara filara file_sharing hos_portal photo_portal) ;;
        'alias map --alias') kind=text ;;
        'alias map --url') kind=text ;;
        'alias map --account') kind=text ;;
        'alias map --account-id') kind=text ;;
        'alias map --password-file') kind=files ;;
        'alias map --auth-key-file') kind=files ;;
        'alias keep-alive --alias') kind=text ;;
        'alias keep-alive --url') kind=text ;;
        'alias query --alias') kind=text ;;
        'alias query --url') kind=text ;;
        'alias delete --alias') kind=text ;;
        'alias delete --url') kind=text ;;
        'alias status --alias') kind=text ;;
        'web probe on --seed') kind=text ;;
        'identity init --serial') kind=text ;;
        'identity init --mac') kind=text ;;
        'identity init --api-key-file') kind=files ;;
        'server-id 1') kind=text ;;
        *) return 1 ;;
    esac
}

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
