// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Small system utilities. None keeps state. Each failure is logged at level 3 under the source name "utils.cpp" and a
 * fixed message number, once by each function that it passes through, and becomes the result; nothing throws for an I/O
 * failure.
 */
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include <relay/common/export.h>

namespace ARDV::Relay::Utils {

/**
 * Puts a finished file in the place of another: sets its mode to 0644, renames it and flushes its folder to the disk.
 * `source` is gone afterwards in every case; on failure `target` is as it was.
 *
 * @return 0 if renamed; else the result of removing `source`: 0, or -1 if even that failed. -1, with nothing done, for a null pointer
 */
ARDVRELAYD_API int RenameFile(const char* source, const char* target);

/**
 * Quarantine: moves a damaged file out of the way, to `path` + ".bad", mode 0644, in the place of an earlier one. A
 * file that cannot be moved is deleted. A null pointer is no file.
 */
ARDVRELAYD_API void RenameBadFile(const char* path);

/**
 * Replaces a file atomically: a reader sees the old content or the new one. The content goes to `path` + ".tmp." +
 * process id, is flushed to the disk, and takes the place of `path` by `RenameFile`, with mode 0644 whatever the old
 * file's mode was. Two threads of one process must not write one path at the same time.
 *
 * @return false if the temporary file could not be opened or written (it is then left behind as far as it came); `path`
 * is untouched then. True once the content is on the disk and the rename was tried.
 */
ARDVRELAYD_API bool WriteFile(const std::string& path, const std::string& content);

/** A random number from the kernel ("/dev/urandom"). 0 after a failure, which cannot be told from a drawn 0. */
ARDVRELAYD_API std::uint32_t Random();

/**
 * MD5 of `count` bytes at `data` (RFC 1321) as 32 lower-case hexadecimal digits. An identifier, not a protection. Empty
 * if the cryptographic library refuses MD5.
 */
ARDVRELAYD_API std::string GetMD5Hex(const void* data, std::size_t count);

/** The device identifier made of a text: the MD5 of its bytes up to the first NUL byte. An empty text has one, too. */
ARDVRELAYD_API std::string GetNuid(const std::string& text);

/** Whether "tethra_enable_failover" is "true" in "/etc/ardvinfo.conf". */
ARDVRELAYD_API bool IsFailoverEnable();

/**
 * Has the web server answer the reachability probe: "/webman/pingpong.cgi" with a non-empty query argument "tethra" (the
 * text "0" counts as empty) gets status 200 and, as text/plain for scripts of every origin, the JSON object
 * {"success": true, "nuid": identifier}. Without the argument the request goes to the web server's own handler as
 * before. Replaces an earlier registration; once this returns true, no new connection is answered by it.
 *
 * The location is handed over in "/tmp/hos.ardvrelayd.conf", which is gone afterwards in every case. Waits for the web
 * server: its test of the configuration and its reload. Nothing is thrown.
 *
 * @param seed text of which the identifier is made, see GetNuid
 * @return false, after a message, where the identifier, the file, or the registration (platform/include/ardvw3) failed
 */
ARDVRELAYD_API bool SetPingpongNginxConf(const std::string& seed);

/**
 * Takes the answer to the probe out of the web server. Waits for its reload. Nothing is thrown.
 *
 * @return false, after one message, where the platform reports a failure; a location that is not registered is none on
 * generic Linux
 */
ARDVRELAYD_API bool RemovePingpongNginxConf();

/**
 * Registers the relay's host name in the web settings, so that TLS connections under this name are served. A name that is
 * registered already is left alone. Nothing is thrown.
 *
 * @param name full host name of this device at the service
 * @return whether it is registered; false after one message
 */
ARDVRELAYD_API bool EnableRelaySNI(const std::string& name);

/** Withdraws the relay's host name from the web settings. Nothing is thrown. @return false after one message */
ARDVRELAYD_API bool DisableRelaySNI();

/**
 * The label after ".tethra." at the end of a service host name: of "box1.tethra.zz", the text "zz". It consists of letters
 * and digits, at least one character stands before ".tethra.", and upper and lower case are different.
 *
 * @return empty, after one message, for any other host, one longer than 1,024 bytes included. Nothing is thrown.
 */
ARDVRELAYD_API std::string GetTethraHostTopDomain(const std::string& host);

}  // namespace ARDV::Relay::Utils
