// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

#include <json/value.h>

#include <relay/common/export.h>
#include <relay/config/config_base.h>

namespace ARDV::Relay {

/** What became of a tunnel. */
enum TUNNEL_STATUS : std::int32_t {
    TUNNEL_STATUS_NONE = 0,          ///< there is none
    TUNNEL_STATUS_READY = 1,         ///< it is up
    TUNNEL_STATUS_CLOSE = 2,         ///< it was up, and OpenVPN has ended
    TUNNEL_STATUS_FAILED = 3,        ///< it did not come up, or no candidate is left
    TUNNEL_STATUS_INVALID_CONF = 4,  ///< the relay's address or the credentials are missing; for the owner to set
    TUNNEL_STATUS_CREATING = 5,      ///< OpenVPN was started
};

/**
 * A tunnel to a relay server: the server's addresses and credentials, OpenVPN (a child process of this process) on
 * the interface "tun1000", and the chain "TETHRA_RELAY" of the packet filter, which guards that interface.
 *
 * JSON: "relay_ip", "relay_ipv6", "relay_user", "relay_pass" (strings) are read. What is written is said at `Write`.
 *
 * The owner's part:
 *
 * 1. `Overwrite` with what the control server assigned, `IsValid`, `Create` with the list of candidates.
 * 2. The up script sends this process SIGUSR2 once the tunnel is up: `UpdateTunnelStatus` (READY), then
 *    `InsertIptableAcceptRule` for each port. Who has no handler for it is ended by it.
 * 3. SIGCHLD: reap the child with waitpid(2) by its own process id (`GetPid`), never all children. CREATING:
 *    `UpdateTunnelStatus` (FAILED), then `Create` for the next candidate. READY: `CheckStatusChanged` (CLOSE),
 *    `Destroy`.
 * 4. SIGALRM, 30 s after `Create`: end the child, await it, and go on with `Create`. Ask for no status meanwhile: a
 *    child that hangs is alive, and would be taken for a tunnel that is up.
 * 5. The end: end the child, await it, then `Destroy`, so that the packet filter stands as long as there is an
 *    interface to guard.
 *
 * A child that has ended but was not reaped still answers a probe: it counts as alive until it is reaped. So reap
 * before each operation that looks at the child: `IsAlive`, `IsTunnelAlive`, `UpdateTunnelStatus`,
 * `CheckStatusChanged`, `Destroy`. A child that somebody else reaps, or that is reaped without such a call
 * afterwards, leaves a process id here that may become a stranger's, which `Destroy` would signal.
 *
 * The process's alarm(2) and SIGALRM are the tunnel's from a `Create` or `RunVPNTunnel` that started a child until
 * `UpdateTunnelStatus`.
 *
 * The child ends, by SIGKILL, with the thread that started it, so that no door stays open when a daemon is killed: a
 * thread that starts a tunnel must live as long as the tunnel is to. Signals have their default effect in the child,
 * none is blocked, and of this process's descriptors it has 0 to 2, or "/dev/null" in the place of one that is closed.
 *
 * All of it belongs to one thread. Nothing throws for what a server or a file says. Messages come from the source
 * "tunnel.cpp". Programs are run by `ALIBCExecl` (<ardv/program.h>) and waited for.
 */
class ARDVRELAYD_API Tunnel : public Config {
public:
    /** No child, status NONE, no addresses and no credentials. */
    Tunnel();

    /** That, with `value` merged over it. */
    explicit Tunnel(const Json::Value& value);

    /** Not to be copied: two owners of one child would take each other's process id for a child that lives. */
    Tunnel(const Tunnel&) = delete;
    Tunnel& operator=(const Tunnel&) = delete;

    /**
     * Takes "relay_ip", "relay_ipv6", "relay_user" and "relay_pass", each if it is a string. A tunnel that was
     * started goes on with what it was started with.
     *
     * @return true
     */
    bool Overwrite(const Json::Value& value) override;

    /** True if "relay_ip", "relay_user" and "relay_pass" are not empty; else false with a message of level 7. */
    bool IsValid() const override;

    /**
     * Writes "relay_ip"; if `full`, also "relay_user", "status" (`GetStatusStr`) and "pid". Never the password, nor the
     * IPv6 address.
     *
     * @return true
     */
    bool Write(Json::Value& value, bool full) const override;

    /** Leaves child, files and packet filter as they are: call `Destroy` before, if the tunnel is to end. */
    virtual ~Tunnel();

    /** The enumerator's name without "TUNNEL_STATUS_"; "(unknown)" for any other number. */
    static std::string GetStatusStr(TUNNEL_STATUS status);

    TUNNEL_STATUS GetStatus() const { return status_; }

    /** For the owner, to mark settings that are not valid (INVALID_CONF). Nothing else changes. */
    void SetStatus(TUNNEL_STATUS status) { status_ = status; }

    /** Process id of the OpenVPN child; -1 if there is none. */
    int GetPid() { return pid_; }  // NOLINT(readability-make-member-function-const): published so

    /** "relay_ip". */
    std::string GetHost() const { return relayIp_; }

    /** Index of the candidate that `Create` looks at next. The one that it started stands before it. */
    std::int32_t GetCandidateIndex() const { return candidateIndex_; }

    /**
     * Starts a tunnel with the first candidate that is of use. Calls `InsertKernelModule` first.
     *
     * The walk begins where the last one has stopped, with the candidate behind the last one that was looked at, so
     * that a call after a failure tries the next; `ResetTunnelData` makes it begin anew.
     *
     * A candidate is an object with "type" ("openvpn"), "protocol" ("udp", "tcp", "udp6" or "tcp6"), "port" (decimal,
     * 1 to 65535), "mtu" (decimal, 32 bits) and perhaps "mtu-disc" (boolean). Numbers count for their text, but not
     * in "type". Skipped, with a message of level 7, is one that lacks one of the first four or has another value
     * there; one that is not allowed; one of "udp6" or "tcp6" if "relay_ipv6" is empty or "::"; and one whose address
     * begins with "-", which would be an option for OpenVPN. For any other `RunVPNTunnel` is called; if that fails,
     * the walk goes on.
     *
     * @param candidates array of candidates; anything else is an empty one
     * @param allowUdp false: skip "udp" and "udp6"
     * @param allowIpv6 false: skip "udp6" and "tcp6"
     * @return true if OpenVPN was started: the status is CREATING. False, with nothing started, if a candidate is of
     *         use while the status is READY. False at the end of the list: the status is FAILED, there is no
     *         process id and no password file, and `RemoveKernelModule` was called; the child of an earlier tunnel is
     *         then lost from sight, so end it before.
     */
    bool Create(const Json::Value& candidates, bool allowUdp, bool allowIpv6);

    /**
     * Starts OpenVPN for one candidate: writes the password file, "/tmp/.tunnel.USER" (cut at 1,023 bytes), starts
     * the child with the arguments of `TunnelExec`, and has SIGALRM come in 30 s. An earlier child is lost from
     * sight, and its password file deleted.
     *
     * If there is no program to execute, or it cannot be executed, the result is true all the same: a message of
     * level 3 says why, and the child has ended at once.
     *
     * @param candidate as in the list of `Create`; its "type" is not looked at
     * @return true if the child was started (CREATING), or if the status is READY, which changes nothing. False without
     *         a password file (NONE; messages of level 3), without a child (CREATING, no process id, no password file;
     *         level 3), and for a candidate that is of no use (NONE; level 7).
     */
    bool RunVPNTunnel(const Json::Value& candidate);

    /**
     * Becomes OpenVPN: executes "/usr/sbin/openvpn" in place of this process, with this process's descriptors,
     * signals and environment. The up script gets this process's parent as the daemon to signal. At a log threshold
     * of 7 or more OpenVPN writes to "/var/log/openvpn.log". For a child that its owner forked; `RunVPNTunnel` does
     * all that itself.
     *
     * Returns only on failure: with a message of level 3, or of level 7 for a candidate that is of no use.
     *
     * @param passFile path of the password file
     */
    void TunnelExec(const char* passFile, const Json::Value& candidate) const;

    /** Whether the child exists; if not, there is no process id any more. Never asks about a process group. */
    bool IsAlive();

    /** The same. */
    bool IsTunnelAlive();

    /**
     * Looks whether a tunnel that was up has ended. CLOSE if so.
     *
     * @return whether that is so: the status was READY and the child is gone
     */
    bool CheckStatusChanged();

    /**
     * Takes note that the tunnel's set-up is over: cancels the alarm and deletes the password file.
     *
     * - The child is alive: READY. The chain is emptied and gets its default rules (`InsertIptableDefaultRule`); the
     *   accept rules are the caller's to insert now.
     * - It is gone, from CREATING: `RemoveKernelModule`, and FAILED. From any other status but FAILED: NONE.
     *
     * @return false if the status is READY and the child alive, with nothing done; else true
     */
    bool UpdateTunnelStatus();

    /**
     * Empties the chain, sends a child that is alive SIGTERM (without waiting for its end), calls
     * `RemoveKernelModule`, deletes the information file and the password file, and forgets the process id. The
     * status stays, and so does an alarm.
     *
     * The child should have been ended, and awaited, before: an emptied chain guards nothing.
     *
     * @return true
     */
    bool Destroy();

    /**
     * Address of the relay within the tunnel: "peer_ip", up to 1,023 bytes of it, of the information file
     * "/tmp/.ardv_tethra_tunnel_info", which the up script writes. Empty without it, and for a file that is a link or
     * a stranger's.
     */
    std::string GetVpnTunnelPeerIp();

    /**
     * Has the VPN client's control script, "/usr/ardv/etc.defaults/ardvvpnclient/scripts/ovpnc.sh", load what
     * "tethraa-tunnel" needs, or unload it. Messages of level 7 before, and after a failure, which stops nothing:
     * `Create` goes on, and what the script could not guard is open to the relay.
     */
    void InsertKernelModule();
    void RemoveKernelModule();

    /**
     * Whether the last `InsertKernelModule` worked; false before the first. The script also sets up what guards the interface, so whoever goes on without it should have a
     * guard of their own: `Create` goes on.
     */
    bool IsPrepared() const { return isPrepared_; }

    /**
     * Rules of the chain, each for IPv4 by "/sbin/iptables" and then for IPv6 by "/sbin/ip6tables". Messages of level
     * 7 before, and after each command that failed; the next one runs all the same.
     *
     * - accept: TCP to `port` is accepted, before all other rules
     * - default: all is dropped, behind all other rules; then ICMP (ICMPv6) is accepted, before all other rules
     * - remove: the chain is emptied
     */
    void InsertIptableAcceptRule(int port) const;
    void InsertIptableDefaultRule() const;
    void RemoveIptableRules() const;

    /**
     * Writes the password file: user name, line feed, password; mode 0600 from its first byte on. What has its name
     * is deleted before, and never written to.
     *
     * @return false, with a message of level 3 and without a file, on failure. A user name with "/", a line break or
     *         a NUL byte fails as an invalid argument does at open(2).
     */
    bool WritePassFile(const std::string& path) const;

    /** Deletes the password file: the one that `RunVPNTunnel` wrote, and the one that has the current user name. */
    void UnlinkTunnelPassFile();

    /** Has `Create` begin its list anew. */
    void ResetTunnelData();

private:
    std::int32_t pid_ = -1;
    std::string relayIp_;
    std::string relayIpv6_;
    std::string relayUser_;
    std::string relayPass_;
    TUNNEL_STATUS status_ = TUNNEL_STATUS_NONE;
    std::int32_t candidateIndex_ = 0;
    std::string writtenPassFile_;
    bool isPrepared_ = false;
};

}  // namespace ARDV::Relay
