// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>

#include <ardv/export.h>

#include <ardvw3/engine.h>

namespace ardvw3 {

/// The web settings of the operating system: its portal's ports and switches, and the host name under which the device
/// is reached through the relay.
///
/// On generic Linux they are in the key/value file "/etc/ardv/web.conf" (<ardv/key_value_file.h>), which each getter
/// reads anew. A missing file, key or value that makes no sense is the default; a getter has no failure of its own,
/// though the error triple may be set when the file can't be read. Objects share nothing but the file: several may
/// exist, in several threads and processes; one object is for one thread at a time.
class ARDVPLATFORM_API HOS {
public:
    /// Opens the settings; reads nothing yet. @throws std::bad_alloc
    explicit HOS(Engine& engine);
    /// Forgets what was noted and not committed.
    ~HOS();
    HOS(const HOS&) = delete;
    HOS& operator=(const HOS&) = delete;

    /// The portal's HTTP port, 1 to 65535: `http_port`, by default 5000.
    int GetHttpPort() const;

    /// The portal's HTTPS port, 1 to 65535: `https_port`, by default 5001.
    int GetHttpsPort() const;

    /// Whether the portal speaks HTTP/2: `http2` is "yes"; by default it doesn't.
    bool GetEnableSPDY() const;

    /// Whether the portal sends HTTP requests on to HTTPS: `https_redirect` is "yes"; by default it doesn't.
    bool GetEnableHttpsRedirect() const;

    /// The host name that is registered for the relay: `relay_ddns`, at most 1,023 bytes of it; empty if there is none. What
    /// is noted and not committed doesn't show. @throws std::bad_alloc
    std::string GetRelayDDNS() const;

    /// Notes a host name for the relay, in the place of what was noted before. Writes nothing: `Set` does.
    ///
    /// @param name 1 to 253 letters, digits, hyphens and dots (the length is DNS's: RFC 1035, 2.3.4)
    /// @return 0 when noted
    /// @return negative for another name (ARDV_ERR_INVALID_ARGUMENT) or without memory; the error triple is set and
    ///         what was noted before stands
    int SetEnableRelayDDNS(const std::string& name);

    /// Notes that no host name is registered, in the place of what was noted before. Writes nothing: `Set` does.
    ///
    /// @return 0 when noted
    /// @return negative on failure; generic Linux has none
    int SetDisableRelayDDNS();

    /// Commits what is noted, by replacing the file as a whole. No host name becomes an empty value, or nothing is
    /// written where there is none already.
    ///
    /// @return true when committed, or when nothing is noted and so nothing is written
    /// @return false on failure; the error triple is set, the file is as it was, and what was noted stays noted for
    ///         another try
    bool Set();

private:
    class Settings;
    std::unique_ptr<Settings> settings_;
};

}  // namespace ardvw3
