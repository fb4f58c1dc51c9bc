// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Stands for a program of the system, under its name: adds its arguments to "/tmp/record/calls" and ends with the exit
 * code that "/tmp/record/NAME.exit" has, else 0. As "openvpn" it also writes down what it has inherited, and without such
 * a file stays until a signal ends it.
 */
#include <fcntl.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

namespace {

const std::string kFolder = "/tmp/record/";

/** In one write, so that calls don't mix. */
void Append(const std::string& file, const std::string& text) {
    const int fd = open(file.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    if (fd < 0 || write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
        std::abort();
    }
    close(fd);
}

std::string OpenDescriptors() {
    std::vector<int> numbers;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone;  // the one by which the folder is read
        const auto target = std::filesystem::read_symlink(entry.path(), gone);
        if (target != "/proc/" + std::to_string(getpid()) + "/fd") {
            numbers.push_back(std::stoi(entry.path().filename()));
        }
    }
    std::sort(numbers.begin(), numbers.end());
    std::string text;
    for (const int number : numbers) {
        text += " " + std::to_string(number);
    }
    return text;
}

std::string Inherited() {
    std::ostringstream text;
    text << "descriptors" << OpenDescriptors() << "\nparent " << getppid() << '\n';
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("SigBlk") || line.starts_with("SigIgn")) {
            text << line << '\n';
        }
    }
    int signal = 0;
    prctl(PR_GET_PDEATHSIG, &signal);
    const char* mark = std::getenv("ARDV_MARK");
    text << "with its parent " << signal << "\nenvironment " << (mark ? mark : "") << '\n';
    return text.str();
}

}  // namespace

int main(int argc, char** argv) {
    std::string call;
    for (int index = 0; index < argc; ++index) {
        call += argv[index] + std::string(1, '\0');
    }
    Append(kFolder + "calls", call + "\n");
    const std::string name = std::filesystem::path(argv[0]).filename();
    if (name == "openvpn") {
        Append(kFolder + "inherited", Inherited() + "end\n");
    }
    int code = 0;
    if (std::ifstream(kFolder + name + ".exit") >> code) {
        return code;
    }
    while (name == "openvpn") {
        pause();
    }
    return 0;
}
