// SPDX-License-Identifier: Apache-2.0
#include "support/control_schema.h"

#include "support/file_text.h"
#include "support/program.h"
#include "support/scratch_folder.h"

namespace ardv::test {

std::string CheckMessageFiles(const std::string& message, const std::vector<std::string>& files) {
    std::vector<std::string> words{ARDV_SCHEMA_CHECK, ARDV_SCHEMA_FOLDER "/" + message + ".schema.json"};
    words.insert(words.end(), files.begin(), files.end());
    const ProgramResult result = RunProgram(words);
    return result.exitCode == 0 ? "" : result.out + result.err + "(" + std::to_string(result.exitCode) + ")";
}

std::string CheckMessages(const std::string& message, const std::vector<std::string>& texts) {
    const ScratchFolder folder;
    std::vector<std::string> files;
    for (const std::string& text : texts) {
        files.push_back(folder.Path() + "/" + std::to_string(files.size()) + ".json");
        WriteText(files.back(), text);
    }
    return CheckMessageFiles(message, files);
}

}  // namespace ardv::test
