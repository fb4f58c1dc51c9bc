// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "support/file_text.h"
#include "support/scratch_folder.h"

namespace ARDV::Platform::Test {

using ardv::test::MountedDisk;
using ardv::test::OpenDescriptors;
using ardv::test::ReadText;
using ardv::test::ScratchFolder;
using ardv::test::WriteText;

/// Puts a file with this text into the folder. Returns its path.
inline std::string MakeFile(const ScratchFolder& folder, const std::string& name, const std::string& text) {
    WriteText(folder.File(name), text);
    return folder.File(name);
}

}  // namespace ARDV::Platform::Test
