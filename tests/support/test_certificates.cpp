// SPDX-License-Identifier: Apache-2.0
#include "support/test_certificates.h"

#include <filesystem>
#include <stdexcept>
#include <utility>

#include "support/file_text.h"
#include "support/process.h"

namespace ardv::test {

TestCertificates::TestCertificates(std::string folder, const std::vector<std::string>& hosts)
    : folder_(std::move(folder)) {
    std::filesystem::create_directories(folder_);
    std::vector<std::string> words{ARDV_MAKE_CERTIFICATES, folder_};
    words.insert(words.end(), hosts.begin(), hosts.end());
    if (Reap(Spawn(std::move(words), folder_ + "/log")) != 0) {
        throw std::runtime_error("no test certificates: " + ReadText(folder_ + "/log"));
    }
}

}  // namespace ardv::test
