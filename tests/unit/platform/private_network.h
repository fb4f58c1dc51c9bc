// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <array>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "child_process.h"

namespace ARDV::Platform::Test {

/// Runs the command of these words. Returns true when it succeeds; what it says goes to the test's output.
inline bool RunWords(const std::string& words) {
    std::vector<std::string> command;
    std::istringstream stream(words);
    for (std::string word; stream >> word;) {
        command.push_back(word);
    }
    return Run(command) == 0;
}

/// Runs ip(8) with these words.
inline bool Ip(const std::string& words) {
    return RunWords("ip " + words);
}

/// A network namespace that lives as long as this object, in a process that does nothing else.
class OtherNetwork {
public:
    OtherNetwork() : ready_(MakePipe()), process_([this] { return Live(); }) {
        close(ready_[1]);
        char byte = 0;
        const bool isReady = read(ready_[0], &byte, 1) == 1;
        close(ready_[0]);
        if (!isReady) {
            throw std::runtime_error("no second network namespace");
        }
    }

    /// What ip(8) calls the namespace.
    std::string Name() const { return std::to_string(process_.Pid()); }

    /// Runs ip(8) there.
    bool Ip(const std::string& words) const { return RunWords("nsenter -t " + Name() + " -n ip " + words); }

private:
    static std::array<int, 2> MakePipe() {
        std::array<int, 2> ends{};
        if (pipe(ends.data()) != 0) {
            throw std::runtime_error("cannot make a pipe");
        }
        return ends;
    }

    int Live() const {
        if (unshare(CLONE_NEWNET) != 0 || write(ready_[1], "", 1) != 1) {
            return 1;
        }
        return pause();
    }

    std::array<int, 2> ready_;
    ChildProcess process_;
};

/// Tests on a machine whose network has loopback and nothing else.
class PrivateNetwork : public testing::Test {
protected:
    void SetUp() override {
        const bool isAlone = unshare(CLONE_NEWNET | CLONE_NEWNS) == 0;
        if (!isAlone || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
            GTEST_SKIP() << "needs the right to make a network namespace";
        }
        ASSERT_TRUE(Ip("link set lo up"));
    }
};

}  // namespace ARDV::Platform::Test
