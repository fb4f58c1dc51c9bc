// SPDX-License-Identifier: Apache-2.0
#include "control_faults.h"

#include <algorithm>

#include "http/text.h"
#include "vocabulary.h"

namespace ARDV::Sandbox {
namespace {

constexpr uint64_t kDefaultDepth = 100'000;
constexpr uint64_t kMaxDepth = 10'000'000;

bool IsOptionalObject(const Json::Value& value) {
    return value.isNull() || value.isObject();
}

// The number may be any value: a device must bear with all of them.
bool ReadErrno(FaultOrder& order) {
    const Json::Value& members = order.Any("members");
    if (!IsOptionalObject(members)) {
        return order.Refuse("members", "must be an object");
    }
    Json::Value answer = members.isNull() ? Json::Value(Json::objectValue) : members;
    answer["errno"] = order.Any("value");
    order.Result().body = ToJsonText(answer);
    return true;
}

bool ReadDeep(FaultOrder& order) {
    uint64_t depth = 0;
    if (!order.Number("depth", kDefaultDepth, 1, kMaxDepth, depth)) {
        return false;
    }
    order.Result().body = R"({"errno":)" + std::string(depth, '[') + std::string(depth, ']') + "}";
    return true;
}

bool ReadAnswer(FaultOrder& order) {
    const Json::Value& members = order.Any("members");
    const Json::Value& without = order.Any("without");
    const auto isText = [](const Json::Value& value) { return value.isString(); };
    if (!IsOptionalObject(members)) {
        return order.Refuse("members", "must be an object");
    }
    if (!without.isNull() && !(without.isArray() && std::all_of(without.begin(), without.end(), isText))) {
        return order.Refuse("without", "must be an array of names");
    }
    order.Result().members["put"] = members;
    order.Result().members["without"] = without;
    return true;
}

constexpr FaultKind kKinds[] = {
    {"errno", ReadErrno, PlayReply},
    {"deep", ReadDeep, PlayReply},
    {"answer", ReadAnswer, PlayNothing},
};

}  // namespace

FaultRules ControlFaultRules() {
    return {kKinds, kCommands};
}

FaultRules PlacedFaultRules() {
    return {.kinds = kKinds, .targets = {}, .isCounted = false};
}

void ChangeAnswer(const Fault& fault, Json::Value& answer) {
    if (!fault.members.isObject()) {
        return;
    }
    const Json::Value& put = fault.members["put"];
    for (const std::string& name : put.getMemberNames()) {
        answer[name] = put[name];
    }
    for (const Json::Value& name : fault.members["without"]) {
        answer.removeMember(name.asString());
    }
}

}  // namespace ARDV::Sandbox
