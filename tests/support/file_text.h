// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <string>

namespace ardv::test {

/** The file's content; empty if there is none. */
std::string ReadText(const std::string& path);

/** Replaces the file, making its folders. Throws where that fails: a test must not go on without its file. */
void WriteText(const std::string& path, const std::string& text);

/** Puts a script, all of whose text is given, in the place of a program or of a link to one. */
void InstallScript(const std::string& path, const std::string& text);

/** The name of the temporary file by which this process replaces a file. */
std::string TemporaryOf(const std::string& path);

/** The file's permission bits. */
mode_t ModeOf(const std::string& path);

/** Gives the device an identity, model and time zone: what a device comes with. */
void MakeDevice();

}  // namespace ardv::test
