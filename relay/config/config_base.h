// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <ostream>

#include <json/value.h>

#include <relay/common/export.h>

namespace ARDV::Relay {

/** The largest JSON file that is read or written, in bytes: 200 times the usual. A larger one counts as damaged. */
inline constexpr std::size_t kMaxJsonFileSize = 1U << 20U;

/**
 * A piece of the daemon's configuration: it reads itself from a JSON value, checks itself and writes itself back. The
 * order of the operations is part of the binary interface; each subclass's destructor follows `WriteConfig`.
 *
 * A configuration object is never destroyed through this base, which therefore has no virtual destructor.
 */
class ARDVRELAYD_API Config {
public:
    /**
     * Merges settings into the object. Each setting is taken where `value` is an object that has its member in the
     * setting's JSON type (a whole real number such as 5.0 counts as an integer); a missing member, or one of another
     * type, leaves the setting as it was, silently. Unknown members are ignored. Nothing is reset to its default, but
     * for two settings that a value without them clears: the alias (`AliasConf`) and the kind of SmartDNS support (`MiscConf`).
     *
     * @return true; only the main configuration returns false, for a value that is no object
     */
    virtual bool Overwrite(const Json::Value& value) = 0;

    /** Whether the settings are usable. Has no side effect but messages. */
    virtual bool IsValid() const = 0;

    /**
     * Sets the object's settings as members of `value`, which becomes an object if it is none. Other members stay.
     *
     * @param value the JSON object to write into
     * @param full false: what belongs in the configuration file; true: everything, run-time facts included. The alias
     *             settings read this flag the other way round (see `AliasConf`).
     * @return true
     */
    virtual bool Write(Json::Value& value, bool full) const = 0;

    /** Saves the object to its own file, if it has one. This version has none: it does nothing and returns true. */
    virtual bool WriteConfig();

protected:
    Config() = default;
    Config(const Config&) = default;
    Config& operator=(const Config&) = default;
    ~Config() = default;
};

/** Prints `Write(..., true)` of a configuration object as one line of compact JSON with a line feed at its end. Of an `AuthConf` that includes the token. */
ARDVRELAYD_API std::ostream& operator<<(std::ostream& stream, const Config& config);

}  // namespace ARDV::Relay
