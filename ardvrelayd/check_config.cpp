// SPDX-License-Identifier: Apache-2.0
#include "check_config.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>

#include <relay/config/config.h>

#include "json_member.h"

namespace ardv::daemon {

using namespace ARDV::Relay;

namespace {

struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

bool Say(const std::string& path, const std::string& problem) {
    std::fprintf(stderr, "%s: %s\n", path.c_str(), problem.c_str());
    return false;
}

bool ReadBounded(std::FILE* file, std::string& text) {
    std::array<char, 65536> block;
    for (std::size_t count = 0; (count = std::fread(block.data(), 1, block.size(), file)) > 0;) {
        text.append(block.data(), count);
        if (text.size() > kMaxJsonFileSize) {
            return false;
        }
    }
    return std::ferror(file) == 0;
}

bool Judge(const std::string& path, const Json::Value& value) {
    RelaydConf configuration(nullptr);
    if (!configuration.Overwrite(value)) {
        return Say(path, "is no JSON object");
    }
    if (!configuration.IsValid()) {
        return Say(path, "its settings cannot be used");
    }
    std::printf("%s: can be used\n", path.c_str());
    return true;
}

}  // namespace

bool CheckConfigFile(const std::string& path) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0 && errno == ENOENT) {
        std::printf("%s: is not there; the defaults can be used\n", path.c_str());
        return true;
    }
    const std::unique_ptr<std::FILE, CloseFile> file(fd < 0 ? nullptr : fdopen(fd, "r"));
    struct stat facts {};
    if (!file || fstat(fd, &facts) != 0) {
        return Say(path, std::strerror(errno));
    }
    std::string text;
    if (!S_ISREG(facts.st_mode) || !ReadBounded(file.get(), text)) {
        return Say(path, "is no file that can be read, or larger than 1 MiB");
    }
    Json::Value value;
    std::string errors;
    return ParseJson(text, value, errors) ? Judge(path, value) : Say(path, "is damaged:\n" + errors);
}

}  // namespace ardv::daemon
