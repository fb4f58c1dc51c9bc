// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <json/value.h>

#include <relay/common/export.h>

namespace ARDV::Relay {

/**
 * The outcome of the device's last alias operation, kept in "/tmp/nubo_alias.status" for other processes: a JSON object
 * with "alias_name" (the alias it belongs to), "status" (the status word of a result, see `gRetMapper`; not empty) and
 * "extra" (what the server added; may be empty), all strings. Messages are logged under the source name
 * "alias_status.cpp".
 */
class ARDVRELAYD_API AliasStatus {
public:
    /** Reads the file, by `Reload`; without one the record is empty. */
    AliasStatus();

    AliasStatus(const AliasStatus&) = default;
    AliasStatus& operator=(const AliasStatus&) = default;
    virtual ~AliasStatus();

    /** Reads the file again. False, with a message of level 7 and an empty record, if that fails. */
    bool Reload();

    /** Whether the record is an object with "alias_name" and a non-empty string "status"; says at level 3 what it
     * lacks. */
    bool IsValid() const;

    /**
     * Looks the outcome up.
     *
     * @param alias the alias it must belong to; a record without a name belongs to the empty alias
     * @param status set to "status" if that is a string
     * @param extra set to "extra" if that is a string
     * @return false, with nothing set, if the record belongs to another alias
     */
    bool GetStatus(const std::string& alias, std::string& status, std::string& extra) const;

    /**
     * Sets the outcome in the record, which keeps its other members (one that is no object starts anew).
     *
     * @param dump also write the file
     * @return true, or the result of `DumpToFile`
     */
    bool SetStatus(const std::string& alias, const std::string& status, const std::string& extra, bool dump);

    /** Writes the file. False, with the file as it was, if the record is not valid, or if it cannot be written. */
    bool DumpToFile();

private:
    Json::Value value_;
};

}  // namespace ARDV::Relay
