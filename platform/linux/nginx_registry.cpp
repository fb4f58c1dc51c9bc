// SPDX-License-Identifier: Apache-2.0
#include <ardvw3/nginx_conf_register.h>

#include <fcntl.h>

#include <array>
#include <cstdio>
#include <exception>
#include <new>
#include <optional>
#include <utility>

#include "platform/linux/nginx_fragment.h"
#include "platform/linux/nginx_server.h"

namespace ARDV::Platform {

namespace {

using ardvw3::W3Code;
using ActionResult = ardvw3::Result<W3Code, Json::Value>;

constexpr std::size_t kMaxSourceBytes = 1024UL * 1024;

Outcome Failed(W3Code code, const std::string& what, const Error& error) {
    std::array<char, 128> where = {};
    std::snprintf(where.data(), where.size(), ": [0x%04X %s:%d]", static_cast<unsigned>(error.code), error.where.file,
                  error.where.line);
    return {code, what + where.data()};
}

ActionResult ToResult(const Outcome& outcome) {
    Json::Value value(Json::objectValue);
    value["message"] = outcome.message;
    return ActionResult(outcome.code, std::move(value));
}

/// The text of a source that nobody but this user or root can have written.
Result<std::string> ReadSource(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos || path.find('\0') != std::string::npos) {
        return MakeError(ARDV_ERR_INVALID_ARGUMENT);
    }
    FilePlace place{FileDescriptor(open(path.substr(0, slash + 1).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)),
                    path.substr(slash + 1)};
    if (!place.folder) {
        return ErrnoError();
    }
    Result<FileContents> contents = ReadFile(place, kMaxSourceBytes);
    if (!contents) {
        return contents.Reason();
    }
    if (CouldOthersHaveWritten(contents->status)) {
        return MakeError(ARDV_ERR_UNSAFE_FILE);
    }
    return std::move(contents->text);
}

/// What a fragment is to become: a text, or nothing.
using Wish = std::optional<std::string>;

/// One change of one fragment, from the files to the workers.
class Change {
public:
    Change(std::string name, Wish wish, bool force) : name_(std::move(name)), wish_(std::move(wish)), force_(force) {}

    Outcome Make() const {
        NginxFragment fragment(name_);
        if (const Failure failure = fragment.Open()) {
            return Failed(W3Code::kFileSystem, "fragments can't be changed", *failure);
        }
        const bool isNew = wish_ ? !fragment.Is(*wish_) : fragment.IsThere();
        const bool isReloaded = isNew || force_ || fragment.IsPending();
        if (!isReloaded && !wish_) {
            return {W3Code::kSuccess, name_ + " isn't registered"};
        }
        if (isNew) {
            if (const Failure failure = wish_ ? fragment.Put(*wish_) : fragment.Remove()) {
                return GoBack(fragment, Failed(W3Code::kFileSystem, name_ + " can't be changed", *failure));
            }
        }
        const NginxConfiguration configuration = TestNginx();
        const Outcome verdict = Judge(configuration);
        if (!verdict.IsSuccess()) {
            return GoBack(fragment, verdict);
        }
        return isReloaded ? PutInForce(fragment, configuration) : verdict;
    }

private:
    Outcome Judge(const NginxConfiguration& configuration) const {
        if (!configuration.verdict.IsSuccess() || !wish_ || configuration.Includes(NginxFragment::PathOf(name_))) {
            return configuration.verdict;
        }
        return {W3Code::kNotIncluded, "nginx's configuration doesn't include " + NginxFragment::PathOf(name_)};
    }

    static Outcome GoBack(NginxFragment& fragment, const Outcome& reason) {
        const Failure failure = fragment.Undo();
        return failure ? Failed(W3Code::kInternal, reason.message + "; what was there isn't back", *failure) : reason;
    }

    static Outcome PutInForce(NginxFragment& fragment, const NginxConfiguration& configuration) {
        if (const Failure failure = fragment.Keep()) {
            return GoBack(fragment, Failed(W3Code::kFileSystem, "what was there before isn't dropped", *failure));
        }
        const auto master = NginxMaster::Find(configuration);
        if (!master) {
            return Failed(W3Code::kReloadFailed, "it can't be told whether nginx is running", master.Reason());
        }
        Outcome outcome = *master ? (*master)->Reload() : Outcome{W3Code::kSuccess, "nginx isn't running"};
        if (outcome.IsSuccess()) {
            fragment.ClearPending();
        }
        return outcome;
    }

    std::string name_;
    Wish wish_;
    bool force_;
};

ActionResult MakeChange(const std::string& name, Wish wish, bool force) {
    return ToResult(Change(name, std::move(wish), force).Make());
}

ActionResult BadName() {
    return ToResult({W3Code::kInvalidArgument, "this is no name of a fragment"});
}

}  // namespace

}  // namespace ARDV::Platform

namespace ardvw3 {

using namespace ARDV::Platform;

NginxConfRegAction::~NginxConfRegAction() = default;

NginxConfRegActionRegAndEnable::NginxConfRegActionRegAndEnable(std::string source, std::string name)
    : source_(std::move(source)), name_(std::move(name)) {}

Result<W3Code, Json::Value> NginxConfRegActionRegAndEnable::Run(bool force) {
    if (!NginxFragment::IsName(name_)) {
        return BadName();
    }
    ARDV::Platform::Result<std::string> text = ReadSource(source_);
    if (!text) {
        return ToResult(Failed(W3Code::kSourceUnreadable, source_ + " can't be read", text.Reason()));
    }
    return MakeChange(name_, std::move(*text), force);
}

NginxConfRegActionDisableAndUnReg::NginxConfRegActionDisableAndUnReg(std::string name) : name_(std::move(name)) {}

Result<W3Code, Json::Value> NginxConfRegActionDisableAndUnReg::Run(bool force) {
    return NginxFragment::IsName(name_) ? MakeChange(name_, {}, force) : BadName();
}

Result<W3Code, Json::Value> NginxConfRegister::DoAction(const std::shared_ptr<NginxConfRegAction>& action, bool force) {
    try {
        return action ? action->Run(force) : ToResult({W3Code::kInvalidArgument, "there is no action"});
    } catch (const std::exception&) {
        return Result<W3Code, Json::Value>(W3Code::kInternal);
    }
}

}  // namespace ardvw3
