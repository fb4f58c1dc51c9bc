// SPDX-License-Identifier: Apache-2.0
#include "doctor_command.h"

#include <algorithm>
#include <iostream>

#include <CLI/CLI.hpp>

#include "doctor_checks.h"
#include "output.h"
#include "text.h"

namespace ardv::ctl {

namespace {

struct HealthWord {
    Health health;
    const char* word;
};

constexpr HealthWord kHealthWords[] = {
    {Health::kOk, "ok"}, {Health::kWarning, "warning"}, {Health::kProblem, "problem"}};

const char* WordOf(Health health) {
    return kHealthWords[static_cast<std::size_t>(health)].word;
}

std::int64_t Count(const std::vector<Diagnosis>& diagnoses, Health health) {
    return std::count_if(diagnoses.begin(), diagnoses.end(),
                         [health](const Diagnosis& each) { return each.health == health; });
}

void Print(const Diagnosis& diagnosis) {
    constexpr std::size_t kWidth = 9;
    const std::string word = WordOf(diagnosis.health);
    std::cout << word << std::string(kWidth - word.size(), ' ') << diagnosis.check << ": "
              << Printable(diagnosis.finding) << '\n';
    if (!diagnosis.advice.empty()) {
        std::cout << std::string(kWidth, ' ') << "-> " << Printable(diagnosis.advice) << '\n';
    }
}

Json::Value AsJson(const std::vector<Diagnosis>& diagnoses, const std::string& failure) {
    Json::Value report(Json::objectValue);
    report["problems"] = Count(diagnoses, Health::kProblem);
    report["warnings"] = Count(diagnoses, Health::kWarning);
    report["checks"] = Json::Value(Json::arrayValue);
    for (const auto& diagnosis : diagnoses) {
        Json::Value row(Json::objectValue);
        row["check"] = diagnosis.check;
        row["level"] = WordOf(diagnosis.health);
        row["finding"] = diagnosis.finding;
        row["advice"] = diagnosis.advice;
        report["checks"].append(row);
    }
    if (!failure.empty()) {
        AddFailure(report, failure, kExitProblem);
    }
    return report;
}

ExitCode Doctor(const Session& session) {
    const auto diagnoses = Examine(session);
    const auto problems = Count(diagnoses, Health::kProblem);
    const std::string failure = problems == 0   ? ""
                                : problems == 1 ? "there is a problem"
                                                : "there are " + std::to_string(problems) + " problems";
    if (session.json) {
        PrintJson(AsJson(diagnoses, failure));
    } else {
        std::for_each(diagnoses.begin(), diagnoses.end(), Print);
    }
    if (!failure.empty()) {
        Complain(failure);
    }
    return failure.empty() ? kExitSuccess : kExitProblem;
}

}  // namespace

void AddDoctorCommand(CLI::App& app, Session& session) {
    AddCommand(app, "doctor", "Look for what is wrong, and say what to do about it", session)->callback([&session] {
        session.exitCode = Doctor(session);
    });
}

}  // namespace ardv::ctl
