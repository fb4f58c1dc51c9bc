// SPDX-License-Identifier: Apache-2.0
#include "scenario.h"

#include <algorithm>
#include <initializer_list>
#include <utility>

#include "control_faults.h"
#include "http/json_file.h"
#include "vocabulary.h"

namespace ARDV::Sandbox {
namespace {

constexpr uint64_t kMaxRequests = 1'000'000'000;
constexpr Json::ArrayIndex kMaxSteps = 10'000;

bool KnowsOnly(const Json::Value& json, std::initializer_list<std::string_view> known, std::string& error) {
    for (const std::string& name : json.getMemberNames()) {
        if (std::find(known.begin(), known.end(), name) == known.end()) {
            error = name + " is not known here";
            return false;
        }
    }
    return true;
}

bool ReadCount(const Json::Value& json, const char* name, uint64_t least, uint64_t& count, std::string& error) {
    if (!json.isMember(name)) {
        return true;
    }
    const Json::Value& value = json[name];
    if (!value.isUInt64() || value.asUInt64() < least || value.asUInt64() > kMaxRequests) {
        error = std::string(name) + " must be a whole number, " + std::to_string(least) + " or more";
        return false;
    }
    count = value.asUInt64();
    return true;
}

}  // namespace

bool Scenario::Load(const std::string& file, std::string& error) {
    const JsonFile source("scenario", file);
    Json::Value json;
    const ReadResult result = source.Read(json, error);
    if (result == ReadResult::kAbsent) {
        error = "there is no scenario " + file;
    }
    if (result != ReadResult::kRead || Set(json, error)) {
        return result == ReadResult::kRead;
    }
    error = source.Damaged(error);
    return false;
}

bool Scenario::Set(const Json::Value& json, std::string& error) {
    if (!json.isArray() || json.size() > kMaxSteps) {
        error = "a scenario must be an array of steps";
        return false;
    }
    std::vector<Step> steps(json.size());
    for (Json::ArrayIndex i = 0; i < json.size(); ++i) {
        if (!ReadStep(json[i], steps[i], error)) {
            error.insert(0, "step " + std::to_string(i) + ": ");
            return false;
        }
    }
    const std::lock_guard lock(mutex_);
    steps_ = std::move(steps);
    turn_ = 0;
    seen_ = 0;
    return true;
}

bool Scenario::ReadStep(const Json::Value& json, Step& step, std::string& error) {
    if (!json.isObject()) {
        error = "must be an object";
        return false;
    }
    if (!KnowsOnly(json, {"when", "answer", "push"}, error) || !ReadWhen(json["when"], step, error)) {
        return false;
    }
    if (json.isMember("push")) {
        if (!json["push"].isObject()) {
            error = "push must be an object";
            return false;
        }
        step.act.push = json["push"];
    }
    if (json.isMember("answer")) {
        step.act.fault = ParseFault(json["answer"], PlacedFaultRules(), error);
        return step.act.fault.has_value();
    }
    return true;
}

bool Scenario::ReadWhen(const Json::Value& json, Step& step, std::string& error) {
    if (!json.isObject()) {
        error = "when must be an object";
        return false;
    }
    const Json::Value& command = json["command"];
    step.command = command.isString() ? command.asString() : "";
    if (json.isMember("command") && std::find(kCommands.begin(), kCommands.end(), step.command) == kCommands.end()) {
        error = "when.command is not known";
        return false;
    }
    return KnowsOnly(json, {"command", "after", "times"}, error) && ReadCount(json, "after", 0, step.after, error) &&
           ReadCount(json, "times", 1, step.times, error);
}

Scenario::Act Scenario::Next(std::string_view command) {
    const std::lock_guard lock(mutex_);
    if (turn_ == steps_.size() || (!steps_[turn_].command.empty() && steps_[turn_].command != command)) {
        return {};
    }
    const Step& step = steps_[turn_];
    ++seen_;
    Act act = seen_ > step.after ? step.act : Act{};
    if (seen_ == step.after + step.times) {
        ++turn_;
        seen_ = 0;
    }
    return act;
}

Json::Value Scenario::Progress() const {
    const std::lock_guard lock(mutex_);
    Json::Value json(Json::objectValue);
    json["step"] = turn_;
    json["steps"] = steps_.size();
    json["seen"] = seen_;
    return json;
}

}  // namespace ARDV::Sandbox
