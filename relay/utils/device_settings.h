// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>

/** Settings of the device and of its packages: key/value files. */
namespace ARDV::Relay::DeviceSettings {

/** The device's own settings. */
inline constexpr const char kFile[] = "/etc/ardvinfo.conf";

/** What came of reading a key. */
struct Setting {
    int result;        ///< 1 if the key is there, 0 if it is absent, negative if the file cannot be read
    std::string text;  ///< the value; empty unless the key is there

    /** Whether there is a text to go by. */
    bool IsGiven() const { return result > 0 && !text.empty(); }
};

/** Reads a key of a key/value file; a value of `size` bytes or more is cut. */
Setting Read(const char* file, const char* key, std::size_t size);

/** Reads a key of `kFile`. */
Setting Read(const char* key, std::size_t size);

/** Whether a key of `kFile` has exactly this value. */
bool Is(const char* key, const char* value);

/** "timezone", at most 255 bytes; empty if there is none. */
std::string TimeZone();

}  // namespace ARDV::Relay::DeviceSettings
