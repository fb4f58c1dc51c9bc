// SPDX-License-Identifier: Apache-2.0
#include "file_text.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace ardv::test {

std::string ReadText(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void WriteText(const std::string& path, const std::string& text) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << text;
    file.close();
    if (!file) {
        throw std::runtime_error("cannot write " + path);
    }
}

void InstallScript(const std::string& path, const std::string& text) {
    std::filesystem::remove(path);
    WriteText(path, text);
    std::filesystem::permissions(path, std::filesystem::perms(0755));
}

std::string TemporaryOf(const std::string& path) {
    return path + ".tmp." + std::to_string(getpid());
}

mode_t ModeOf(const std::string& path) {
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777U : 0;
}

void MakeDevice() {
    WriteText("/etc/ardv/identity.conf",
              "serial=\"AV0000000001\"\ntoken=\"0123456789abcdef0123456789abcdef\"\n"
              "api_key=\"example-api-key\"\nmac=\"02:00:5e:10:00:01\"\n");
    std::filesystem::permissions("/etc/ardv/identity.conf", std::filesystem::perms(0600));
    WriteText("/etc.defaults/ardvinfo.conf", "upnpmodelname=\"AV-220\"\n");
    WriteText("/etc/ardvinfo.conf", "timezone=\"Amsterdam\"\n");
}

}  // namespace ardv::test
