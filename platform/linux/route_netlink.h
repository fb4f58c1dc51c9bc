// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <cstring>
#include <functional>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/linux/error.h"

namespace ARDV::Platform {

// Reading the kernel's network tables through rtnetlink(7). They are those of the caller's network namespace, which
// sysfs, being that of the namespace where it was mounted, may not be.

/// The attributes of a record, or those nested in one.
class NetlinkAttributes {
public:
    explicit NetlinkAttributes(std::string_view bytes) : bytes_(bytes) {}

    /// The bytes of the first attribute of this type; nothing when there is none.
    std::optional<std::string_view> Find(unsigned type) const;

    /// The attribute as a text without its NUL; empty when there is none.
    std::string_view Text(unsigned type) const;

    /// The attribute as a value of exactly this type; nothing when there is none, or one of another size.
    template <typename Value>
    std::optional<Value> Take(unsigned type) const {
        const std::optional<std::string_view> bytes = Find(type);
        if (!bytes || bytes->size() != sizeof(Value)) {
            return {};
        }
        Value value{};
        std::memcpy(&value, bytes->data(), sizeof(value));
        return value;
    }

private:
    std::string_view bytes_;
};

/// A table: what to ask for, of which address family, and the type of the records that answer.
struct NetlinkTable {
    std::uint16_t request;
    std::uint16_t record;
    std::uint8_t family;
};

/// Called with what comes before the records of an answer, and with each record: its header and attributes. The answer
/// begins anew when the table changed while it was being told.
struct NetlinkReader {
    std::function<void()> begin;
    std::function<void(std::string_view)> take;
};

/// Reads a table of records whose header, and that of the question, has `headerBytes` bytes: those of an ifinfomsg at
/// most, the largest one.
Failure ReadNetlinkTable(const NetlinkTable& table, std::size_t headerBytes, const NetlinkReader& reader);

/// Reads a table of records that begin with a `Header`. `read` turns one into an entry, or into nothing. More than some
/// thousand entries are ARDV_ERR_TOO_LARGE.
template <typename Header, typename Entry>
Result<std::vector<Entry>> ReadNetlinkEntries(
    const NetlinkTable& table,
    const std::function<std::optional<Entry>(const Header&, const NetlinkAttributes&)>& read) {
    constexpr std::size_t kMaxEntries = 8192;
    std::vector<Entry> entries;
    const auto take = [&](std::string_view record) {
        Header header{};
        if (record.size() < sizeof(header) || entries.size() > kMaxEntries) {
            return;
        }
        std::memcpy(&header, record.data(), sizeof(header));
        if (std::optional<Entry> entry = read(header, NetlinkAttributes(record.substr(sizeof(header))))) {
            entries.push_back(std::move(*entry));
        }
    };
    if (const Failure failure = ReadNetlinkTable(table, sizeof(Header), {[&] { entries.clear(); }, take})) {
        return *failure;
    }
    return entries.size() > kMaxEntries ? Result<std::vector<Entry>>(MakeError(ARDV_ERR_TOO_LARGE)) : entries;
}

}  // namespace ARDV::Platform
