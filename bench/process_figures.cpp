// SPDX-License-Identifier: Apache-2.0
#include "process_figures.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <string>

namespace ardv::bench {

namespace {

namespace fs = std::filesystem;

std::string ReadText(const fs::path& path) {
    std::ifstream file(path);
    if (!file) {
        throw std::runtime_error("cannot read " + path.string());
    }
    return {std::istreambuf_iterator<char>(file), {}};
}

// The number behind "NAME:" at the beginning of a line.
std::int64_t NumberOf(const std::string& text, const std::string& name) {
    const auto place = ("\n" + text).find("\n" + name + ":");
    if (place == std::string::npos) {
        throw std::runtime_error("the kernel does not tell " + name);
    }
    return std::stoll(text.substr(place + name.size() + 1));
}

std::int64_t CountEntries(const fs::path& folder) {
    return std::distance(fs::directory_iterator(folder), fs::directory_iterator());
}

void AddThread(const fs::path& folder, ProcessFigures& figures) {
    figures.switches += NumberOf(ReadText(folder / "status"), "voluntary_ctxt_switches");
    std::istringstream schedule(ReadText(folder / "schedstat"));
    std::int64_t cpu = 0;
    std::int64_t waited = 0;
    std::int64_t slices = 0;
    schedule >> cpu >> waited >> slices;
    figures.cpu += cpu;
    figures.timeSlices += slices;
}

}  // namespace

ProcessFigures ReadFigures(pid_t pid) {
    const fs::path folder = "/proc/" + std::to_string(pid);
    ProcessFigures figures;
    for (const auto& thread : fs::directory_iterator(folder / "task")) {
        AddThread(thread.path(), figures);
        ++figures.threads;
    }
    const auto io = ReadText(folder / "io");
    figures.writes = NumberOf(io, "syscw");
    figures.written = NumberOf(io, "write_bytes");
    const auto status = ReadText(folder / "status");
    figures.rss = NumberOf(status, "VmRSS");
    figures.anonymous = NumberOf(status, "RssAnon");
    figures.pss = NumberOf(ReadText(folder / "smaps_rollup"), "Pss");
    figures.descriptors = CountEntries(folder / "fd");
    return figures;
}

}  // namespace ardv::bench
