// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>

#include "support/scratch_folder.h"

namespace ardv::test {

/**
 * A real systemd, as process 1 of namespaces of its own, with its own system bus. It runs on the test's private root
 * and network: it finds the unit files that the test writes, and its bus is where every program looks for it. None of
 * the machine's own units is started but the bus. All its processes end with this object, or with the test.
 *
 * A process has one box at a time. Processes in it have other ids than those that the test sees.
 */
class SystemdBox {
public:
    /** Where unit files go that an administrator writes, and the links of what is enabled. Empty when a box starts. */
    static constexpr const char* kUnitFolder = "/etc/systemd/system";

    /** What this machine doesn't grant a test that it takes to run a box; empty when it can. */
    static std::string WhyNot();

    /**
     * Boots it and waits, 20 seconds at most, until its bus and its manager answer.
     * @throws std::runtime_error with what it said when it doesn't come up
     */
    SystemdBox();
    ~SystemdBox();
    SystemdBox(const SystemdBox&) = delete;
    SystemdBox& operator=(const SystemdBox&) = delete;

    /** Writes the file of a unit, for example "example.service", that doesn't exist yet. */
    void AddUnit(const std::string& name, const std::string& text) const;

    /** What the manager and units without an output of their own wrote. */
    std::string Console() const;

    /** The control group that holds all processes of the box, a folder. Gone after the box. */
    const std::string& ControlGroup() const { return group_; }

private:
    class Guardian;

    std::string group_;
    std::unique_ptr<MountedDisk> units_;
    std::unique_ptr<Guardian> guardian_;
};

}  // namespace ardv::test
