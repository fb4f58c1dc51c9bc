// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The process-wide side of the daemon. All of it is class-level: there is one daemon, and one log, in a process.
 */
#pragma once

#include <sys/types.h>

#include <cstdarg>
#include <cstdint>
#include <string>

#include <json/value.h>

#include <relay/common/export.h>

namespace ARDV::Relay {

/**
 * The one process-wide log; how the daemon's process begins; how other processes find it, ask it and signal it.
 *
 * The daemon calls `SetName`, `SetLogFile`, `Init(true)` and `InitSignalHandler`, in this order, and reads the signals that arrive from
 * libdaemon's descriptor (<libdaemon/dsignal.h>) afterwards. A tool calls `LibInit` and then `Hup`, `Kill` or `Signal`; the status
 * queries need no call before them.
 *
 * Operations that signal a process never signal a process group: a pid file or a status file that names no single process (such as an
 * empty pid file, which libdaemon reads as 0) names no daemon. Whoever looks at the pid file removes one whose process is gone, and waits
 * while another process holds a lock (fcntl(2)) on it, as libdaemon does.
 *
 * Results are numbers of `RELAYD_RET`, besides which 1 says that no daemon runs and 2 that it could not be signalled. Nothing throws for
 * what other processes left in files.
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

    /**
     * Names the daemon, for its log, for libdaemon and for the system log, and makes "/var/run/NAME.pid" its pid file.
     *
     * @param name the name, or a path that ends in it, such as argv[0]; it is copied
     * @return false, with nothing changed, for null
     */
    static bool SetName(const char* name);

    /**
     * Chooses another pid file. To be called after `SetName`, which chooses one too.
     *
     * @return false, with the path as it was, for null, for an empty path, and for one that does not begin with "/" (level 3)
     */
    static bool SetPidFile(const char* path);

    /** Path of the pid file; empty until `SetName` or `SetPidFile`. Valid until the path changes. */
    static const char* GetPidFile();

    /**
     * Prepares a tool for the operations below: names the daemon "ardvrelayd" where it has no name yet, which chooses
     * "/var/run/ardvrelayd.pid" unless `SetPidFile` has chosen a path.
     *
     * @return true
     */
    static bool LibInit();

    /**
     * Has libdaemon collect SIGINT, SIGTERM, SIGQUIT, SIGPIPE, SIGHUP, SIGCHLD, SIGALRM, SIGUSR1, SIGUSR2 and SIGRTMIN+1 to SIGRTMIN+3:
     * wait for `daemon_signal_fd()` to be readable and take each by `daemon_signal_next()`. Both ends of the pipe behind it are
     * close-on-exec. A child that goes on without exec must call `daemon_signal_done()`, or it takes signals from its parent. Without
     * a pipe nothing is handled, and `daemon_signal_fd()` is -1.
     *
     * Each signal is unblocked first: one that waits already takes its default effect unless it has a handler.
     */
    static void InitSignalHandler();

    /**
     * Becomes the one daemon on the pid file, which this process then is to remove at its end (`daemon_pid_file_remove()`).
     *
     * @param fork go into the background first, by `Fork`. The process that called ends with the child's result: 0, or 4 if the pid file
     *             could not be created.
     * @return true in the daemon. False with a message of level 3 if a daemon runs already (before any fork; so it is also while the file is
     *         empty), if `Fork` fails, or if the pid file cannot be created: with `fork` that is the child, which should end.
     */
    static bool Init(bool fork);

    /**
     * Goes into the background: descriptors 0 to 2 are /dev/null, the folder is "/", the umask is 077, and there is no terminal. Then the
     * log file, if one is set, takes the place of descriptor 2 and is emptied.
     *
     * Returns in the child alone. The parent waits up to 20 seconds for the number that the child sends by `daemon_retval_send`, as
     * `Init` does, logs it (level 7 for 0, else 3), and ends with it by exit(3); with 255 and a message of level 3 if none comes.
     *
     * @return true in the child; false in the parent, with a message of level 3, if there is no child
     */
    static bool Fork();

    /**
     * Sends the running daemon a signal.
     *
     * @return 0, or 2 with a message of level 5 if no daemon runs or it may not be signalled
     */
    static int Signal(int sig);

    /** Tells the running daemon to end, by SIGTERM. As `Signal`. */
    static int Kill();

    /**
     * Tells the running daemon to read its configuration again, by SIGHUP.
     *
     * @return 0; or 2, with "NAME not running" and a line feed on standard error, whatever the log's threshold
     */
    static int Hup();

    /**
     * Reads the status file, `kStatusFile`, which the daemon replaces after each change: a JSON object of at most `kMaxJsonFileSize` bytes
     * with
     *
     * | key | JSON type | meaning | without it |
     * |---|---|---|---|
     * | "pid" | integer | the daemon's process | the file is bad |
     * | "serverID" | string | the device's identifier at the service | there is none |
     * | "state" | integer | `RELAYD_STATE` | 1 |
     * | "error" | integer | `RELAYD_RET` of the last failure | 0 |
     * | "service" | array of objects with "id" (string) | what is relayed | nothing is |
     *
     * and whatever else the daemon has to say. The file counts only if it is a regular file with one name that belongs to this user or to
     * root. It is never moved or changed here, and no lock is taken.
     *
     * @param status the whole file, also with results 1 and 255 as far as it is JSON; as it was if it is not
     * @return 0 if the daemon that wrote it runs; 1 if it does not, may not be signalled by this user, or if there is no file that counts.
     *         255, with a message of priority 3 in the system log, if the file is no JSON, too large, or has no "pid" of 32 bits other
     *         than -1.
     */
    static int GetStatus(Json::Value& status);

    /**
     * The status in words.
     *
     * @param serverId the device's identifier at the service. As it was if the file has none; "--" if a service is asked for that is not
     *                 relayed.
     * @param state text of the state (`GetStateStr`); "not_running" where no daemon runs, and for a service that is not relayed
     * @param error text of the last failure (`GetErrorStr`); "success" in these two cases
     * @param service identifier of the service that is asked for, or null for none
     * @return false if `GetStatus` finds the file bad (255): `state` and `error` are then as they were
     */
    static bool GetStatus(std::string& serverId, std::string& state, std::string& error, const char* service);

    /**
     * Prints what is to be known to standard output. A damaged configuration or alias status that is read for it is moved aside.
     *
     * @param debug the daemon's report (`DebugStatus`), on one line of JSON. Else, from status file, configuration and alias status, the
     *              lines "serverID: ", "state: ", "alias: ", "alias_status: " and, after a failure, "error: ".
     * @return with `debug` the result of `DebugStatus`: a line says so if that is 1 ("NAME is not running") or another failure ("get status
     *         failed"). Else 0; 1 if the state is "not_running"; 2, with the line "get status failed", for a bad status file.
     */
    static int Status(bool debug);

    /**
     * Fetches the daemon's diagnostic report. The daemon, on SIGUSR1, writes one JSON document of at most `kMaxJsonFileSize` bytes into
     * `GetReportFile`, which is made, locked exclusively and deleted here: it must be written in place, not replaced, and within a few
     * milliseconds. What a requester that was killed left in the file is taken for the report, if it is whole. Calls `LibInit`. Messages go
     * to the system log.
     *
     * @param report the document; null unless the result is 0
     * @return 0; 1 if no daemon runs (priority 3 if it cannot be signalled); 11 if another request is under way (priority 6), or if no
     *         whole document appears in time (priority 7); 255 if the file cannot be read or is gone (priority 3)
     */
    static int DebugStatus(Json::Value& report);

    /**
     * Asks the daemon that wrote the status file to update its alias now, by SIGRTMIN+1. That process is taken for the daemon unseen: if the
     * daemon was killed, and its number given to another process, that one is signalled.
     *
     * @return 0 if the signal was sent; else 1 or 255 as `GetStatus`
     */
    static int UpdateAlias();

    /** Where the daemon on process `pid` leaves its report. */
    static std::string GetReportFile(pid_t pid);

    static constexpr const char kStatusFile[] = "/tmp/.ardvrelayd.status";  ///< see `GetStatus`

    static std::string _strPidFile;  ///< path of the pid file; empty at first
    static bool _isCreated;          ///< for the daemon's own use; false at first
    static bool _isForked;           ///< set once, in the background process
    static std::int32_t _logLevel;   ///< threshold: messages up to this level are written; 4 at first
    static std::string _strLogFile;  ///< path of the log file; empty at first
};

}  // namespace ARDV::Relay
