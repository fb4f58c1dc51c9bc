// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>

#include <json/value.h>

#include <ardv/export.h>

#include <ardvw3/result.h>

namespace ardvw3 {

/// Fragments of the web server's configuration, registered under a name.
///
/// # What a port owes
///
/// A registered fragment is a part of the server block that serves the device; registering under a name that is taken
/// replaces the fragment. A fragment that makes the server refuse its configuration is never left in place. After
/// success no new connection is answered by the configuration from before.
///
/// # Generic Linux
///
/// The server is nginx, "/usr/sbin/nginx" with the configuration that is compiled in, or the one that `nginx_conf` in
/// "/etc/ardv/web.conf" names (handed to nginx by -c). Its server block must have the line
///
///     include /etc/ardv/nginx.d/*.conf;
///
/// A fragment is the file NAME in that folder, mode 0644. NAME is 6 to 200 letters, digits, dots, hyphens and
/// underscores, doesn't begin with a dot and ends in ".conf". The folder and "/etc/ardv" are made where they are
/// missing, mode 0755 whatever the umask; nothing is done in them (`kFileSystem`) where their group or others may write
/// to one of them: what lies there is configuration of a server that starts as root.
///
/// A change is made in these steps, under a lock (the file ".nginx.d.lock" in the folder) for which other processes and
/// threads wait without a limit of time: the old file is kept aside as ".NAME.old", or the empty file ".NAME.none" says
/// that there was none; the new one is written beside it, flushed and renamed into place; nginx tests the whole
/// configuration (30 seconds at most) and is otherwise told nothing; where it refuses, what was there comes back. Then
/// what was kept aside is dropped, the master process, found by the `pid` of the tested configuration, is told to
/// reload, and the call waits, 10 seconds at most, until every worker of the old configuration has stopped to accept
/// connections. Requests that are under way are finished by the old workers. Where a program dies before the drop, the
/// next action, on whatever name, begins by bringing back what was there.
///
/// While no nginx is running the change is in place when it has passed the test, and counts when nginx starts: that is
/// success. A change that is in place and not taken over (`kReloadFailed`, `kTimeout`) is remembered by the file
/// ".NAME.pending": the next action on NAME reloads even if it changes nothing.
///
/// The caller needs the rights to write to the folder, to read all of nginx's configuration and to signal the master:
/// in practice it's root. Nothing here throws, and the error triple carries nothing.
///
/// In each result the value is an object with the member "message": a text for a person, with up to 4,096 bytes of
/// nginx's own words where it refused; empty after success without anything to say. It's null where memory ran out.
class ARDVPLATFORM_API NginxConfRegAction {
public:
    virtual ~NginxConfRegAction();

    /// Does it; callers use `NginxConfRegister::DoAction`, which lets no exception pass.
    virtual Result<W3Code, Json::Value> Run(bool force) = 0;
};

/// Copies a fragment in under a name, enables it and reloads the server.
///
/// Where the same bytes are in place and in force, the configuration is tested all the same but not reloaded, unless
/// `force` is set.
class ARDVPLATFORM_API NginxConfRegActionRegAndEnable : public NginxConfRegAction {
public:
    /// @param source path of a file of at most 1 MiB, which is read and left alone. It must be a regular file, no
    ///        symbolic link, that belongs to root or the effective user and that nobody else may write to: it becomes
    ///        configuration of a server that starts as root
    /// @param name the fragment's name
    NginxConfRegActionRegAndEnable(std::string source, std::string name);
    Result<W3Code, Json::Value> Run(bool force) override;

private:
    std::string source_;
    std::string name_;
};

/// Disables a fragment, removes it and reloads the server.
///
/// A name that isn't registered is success, and nothing is done unless `force` is set. Where nginx refuses the
/// configuration without the fragment, or another fault in it, the fragment stays: it couldn't be taken out of force.
class ARDVPLATFORM_API NginxConfRegActionDisableAndUnReg : public NginxConfRegAction {
public:
    /// @param name the fragment's name
    explicit NginxConfRegActionDisableAndUnReg(std::string name);
    Result<W3Code, Json::Value> Run(bool force) override;

private:
    std::string name_;
};

/// Performs actions on the web server's configuration.
class ARDVPLATFORM_API NginxConfRegister {
public:
    /// Performs an action, one at a time on the machine.
    ///
    /// @param action what is to be done; a null pointer is `kInvalidArgument`
    /// @param force whether the server is reloaded even if nothing has changed
    /// @return the code, and an object with a message
    Result<W3Code, Json::Value> DoAction(const std::shared_ptr<NginxConfRegAction>& action, bool force);
};

}  // namespace ardvw3
