// SPDX-License-Identifier: Apache-2.0
#include "report_command.h"

#include <algorithm>
#include <iostream>

#include <CLI/CLI.hpp>

#include "daemon_findings.h"
#include "daemon_process.h"
#include "output.h"
#include "report_request.h"
#include "text.h"

namespace ardv::ctl {

namespace {

using Rows = std::vector<std::vector<std::string>>;

constexpr int kNotRunning = 1;  // as the library has it
constexpr std::size_t kMaxColumns = 10;
constexpr Json::ArrayIndex kMaxRows = 200;

bool IsPlain(const Json::Value& value) {
    return value.empty() || !(value.isObject() || value.isArray());
}

/** Whether a list is best shown as a table: objects that hold plain values. */
bool IsTable(const Json::Value& list) {
    return list.isArray() && !list.empty() && list.size() <= kMaxRows &&
           std::all_of(list.begin(), list.end(), [](const Json::Value& row) {
               return row.isObject() && std::all_of(row.begin(), row.end(), IsPlain);
           });
}

std::vector<std::string> ColumnsOf(const Json::Value& list) {
    std::vector<std::string> columns;
    for (const auto& row : list) {
        for (const auto& name : row.getMemberNames()) {
            if (columns.size() < kMaxColumns && std::find(columns.begin(), columns.end(), name) == columns.end()) {
                columns.push_back(name);
            }
        }
    }
    return columns;
}

void PrintListOfObjects(const Json::Value& list) {
    const auto columns = ColumnsOf(list);
    Rows rows = {columns};
    for (const auto& element : list) {
        auto& row = rows.emplace_back();
        for (const auto& column : columns) {
            row.push_back(element.isMember(column) ? PlainText(element[column]) : "-");
        }
    }
    PrintTable(rows);
}

void PrintSection(const std::string& name, const Json::Value& section) {
    std::cout << "\n[" << Excerpt(name) << "]\n";
    if (IsTable(section)) {
        PrintListOfObjects(section);
    } else {
        PrintDotted(section);
    }
}

/** Plain values first, then a section for each object and list. */
void PrintReport(const Json::Value& report) {
    if (!report.isObject()) {
        std::cout << Printable(PlainText(report)) << '\n';
        return;
    }
    for (const auto& name : report.getMemberNames()) {
        if (IsPlain(report[name])) {
            std::cout << Excerpt(name) << ": " << Excerpt(PlainText(report[name])) << '\n';
        }
    }
    for (const auto& name : report.getMemberNames()) {
        if (!IsPlain(report[name])) {
            PrintSection(name, report[name]);
        }
    }
}

void PrintFindings(const std::vector<DaemonFinding>& findings, const std::vector<std::string>& log) {
    for (const auto& finding : findings) {
        std::cout << finding.what << ": " << Printable(finding.text) << '\n';
    }
    for (const auto& line : log) {
        std::cout << "  " << line << '\n';
    }
}

Json::Value AsJson(const std::vector<DaemonFinding>& findings, const std::vector<std::string>& log) {
    Json::Value report(Json::objectValue);
    for (const auto& finding : findings) {
        std::string key = finding.what;
        std::replace(key.begin(), key.end(), ' ', '_');
        report["findings"][key] = finding.text;
    }
    report["log"] = Json::Value(Json::arrayValue);
    for (const auto& line : log) {
        report["log"].append(line);
    }
    return report;
}

ExitCode ReportFailure(const Session& session, int result) {
    const auto exitCode = ExitCodeOfDaemon(result);
    const std::string text = exitCode == kExitNotRunning ? "the daemon does not run"
                             : exitCode == kExitNoAnswer ? "the daemon does not answer"
                                                         : "the daemon's report cannot be read";
    const auto findings = ExamineDaemon(session);
    const auto log = EndOfLog(session);
    if (session.json) {
        Json::Value report = AsJson(findings, log);
        AddFailure(report, text, exitCode);
        PrintJson(report);
    } else {
        PrintFindings(findings, log);
    }
    Complain(text);
    return exitCode;
}

ExitCode Report(const Session& session) {
    CheckNamedFile(session);
    const auto pid = ReadPidFile();
    if (!pid || !IsDaemon(*pid)) {
        return ReportFailure(session, kNotRunning);
    }
    RequireRights(*pid);
    Json::Value report;
    if (const int result = RequestReport(*pid, report); result != 0) {
        return ReportFailure(session, result);
    }
    if (session.json) {
        PrintJson(report);
    } else {
        PrintReport(report);
    }
    return kExitSuccess;
}

}  // namespace

void AddReportCommand(CLI::App& app, Session& session) {
    AddCommand(app, "report", "Show what the daemon says of itself; of one that does not answer, what is found",
               session)
        ->callback([&session] { session.exitCode = Report(session); });
}

}  // namespace ardv::ctl
