// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The process-wide side of the daemon. All of it is class-level: there is one daemon, and one log, in a process.
 */
#pragma once

#include <cstdarg>
#include <cstdint>
#include <string>

#include <relay/common/export.h>

namespace ARDV::Relay {

/**
 * The one process-wide log, and what the process knows of itself.
 *
 * A log line is written to descriptor 2: month, day, time and year, a blank, the message (which by convention begins
 * with the source's base name, a colon, the line number and a blank) and a line feed. Levels are those of syslog: 3
 * error, 5 notice, 6 info, 7 debug, and 9 for one very verbose trace. Nothing is rotated or trimmed. No operation takes
 * a lock: lines of several threads may mix between the three writes that make up a line.
 */
class ARDVRELAYD_API Daemon {
public:
    Daemon() = delete;

    /** Whether messages of this level are written, so that a caller may save itself a costly diagnosis. */
    static bool IsLogEnable(int level);

    /**
     * Writes one line to the log, if `level` is enabled. Never fails towards the caller and leaves errno as it was.
     *
     * @param level syslog priority of the message
     * @param format printf format without a line feed at its end; "%m" is the text of errno as it is at the call
     */
    static void Log(int level, const char* format, ...) __attribute__((format(printf, 2, 3)));

    /** As `Log`, with the arguments as a list. */
    static void LogV(int level, const char* format, va_list args) __attribute__((format(printf, 2, 0)));

    /**
     * Changes threshold and file of the log.
     *
     * Before the process has forked into the background the path is only kept, for the fork. Afterwards the file (with
     * an empty path: "/var/log/ardvrelayd.log") is opened for appending in place of descriptor 2.
     *
     * @param path the log file; kept as it is, also when empty
     * @param level the new threshold, which libdaemon's own messages then follow; negative: the threshold stays
     * @return true, whatever became of the file: a log that cannot be opened is reported in the log as it was
     */
    static bool SetLogFile(const std::string& path, int level);

    /**
     * Opens a file write-only in place of a descriptor, which stays open across exec.
     *
     * @param path the file. In a folder that everybody may write to (such as /tmp) it must be a regular file that belongs to this user or
     *             to root and has one name; no symbolic link is followed.
     * @param fd the descriptor to replace
     * @param flags open(2) flags besides O_WRONLY. A file made by O_CREAT has mode 0600.
     * @return false with a message of level 3 if the file cannot be opened or put in place; `fd` is then as it was
     */
    static bool OpenLogFile(const std::string& path, int fd, int flags);

    /** Whether this process is a daemon that went into the background. */
    static bool IsForked();

    static bool _isForked;           ///< set once, in the background process
    static std::int32_t _logLevel;   ///< threshold: messages up to this level are written; 4 at first
    static std::string _strLogFile;  ///< path of the log file; empty at first
};

}  // namespace ARDV::Relay
