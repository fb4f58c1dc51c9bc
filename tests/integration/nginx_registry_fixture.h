// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <memory>
#include <ostream>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include <ardvw3/nginx_conf_register.h>

#include "support/file_text.h"
#include "support/nginx_server.h"
#include "support/scratch_folder.h"

namespace ardvw3 {

inline void PrintTo(W3Code code, std::ostream* stream) {
    *stream << "code " << static_cast<int>(code);
}

}  // namespace ardvw3

namespace ardv::test {

using namespace ardvw3;

inline constexpr const char* kFolder = "/etc/ardv/nginx.d";
inline constexpr const char* kLock = ".nginx.d.lock";

inline std::string PathOf(const std::string& name) {
    return std::string(kFolder) + "/" + name;
}

/** A fragment by which "/PATH" is answered with a text. */
inline std::string Answering(const std::string& text, const std::string& path = "a") {
    return "location = /" + path + " { return 200 \"" + text + "\"; }\n";
}

inline std::set<std::string> Registered() {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(kFolder)) {
        names.insert(entry.path().filename().string());
    }
    names.erase(kLock);
    return names;
}

inline std::string Fetch(const std::string& target) {
    const WebAnswer answer = NginxServer::Get(target);
    return answer.status == 200 ? answer.body : std::to_string(answer.status);
}

class NginxRegistry : public testing::Test {
protected:
    void SetUp() override {
        if (!NginxServer::IsInstalled()) {
            GTEST_SKIP() << "nginx isn't installed";
        }
    }

    static W3Code Do(const std::shared_ptr<NginxConfRegAction>& action, std::string* message = nullptr,
                     bool force = false) {
        const auto result = NginxConfRegister().DoAction(action, force);
        EXPECT_TRUE(result.GetValue()["message"].isString());
        if (message) {
            *message = result.GetValue()["message"].asString();
        }
        return result.GetCode();
    }

    W3Code Register(const std::string& name, const std::string& text, std::string* message = nullptr,
                    bool force = false) const {
        WriteText(folder.File("source"), text);
        return Do(std::make_shared<NginxConfRegActionRegAndEnable>(folder.File("source"), name), message, force);
    }

    static W3Code RegisterFile(const std::string& path) {
        return Do(std::make_shared<NginxConfRegActionRegAndEnable>(path, "a.conf"));
    }

    static W3Code Remove(const std::string& name, std::string* message = nullptr, bool force = false) {
        return Do(std::make_shared<NginxConfRegActionDisableAndUnReg>(name), message, force);
    }

    ScratchFolder folder;
    NginxServer nginx;
};

}  // namespace ardv::test
