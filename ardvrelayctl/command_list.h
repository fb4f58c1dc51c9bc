// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace CLI {
class App;
}

namespace ardv::ctl {

/**
 * Prints everything that a command line can hold, for the makers of completion and manual. Each line has fields between tabs:
 *
 *     command  PATH  HELP
 *     option   PATH  NAMES  TYPE  VALUES  HELP
 *     argument PATH  NAME   TYPE  VALUES  HELP
 *
 * PATH: the words of the command, "-" for the tool itself. NAMES: with dashes, separated by commas. TYPE: "-" for a flag. VALUES: those
 * that are accepted, separated by blanks, or "-" where they are not enumerated.
 */
void PrintCommands(const CLI::App& app);

}  // namespace ardv::ctl
