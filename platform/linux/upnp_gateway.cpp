// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/upnp_gateway.h"

#include <arpa/inet.h>
#include <miniupnpc/miniupnpc.h>
#include <miniupnpc/upnpreplyparse.h>
#include <strings.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <string_view>
#include <utility>

#include "platform/linux/port_number.h"

namespace ARDV::Platform {

namespace {

constexpr long kHttpOk = 200;

/// Routers hold some hundred mappings at most; a list that goes on beyond is meant to never end.
constexpr int kMaxEntries = 512;

/// UPnP error of GetListOfPortMappings for a list without entries (WANIPConnection:2, section 2.5.21).
constexpr std::string_view kNoMappings = "730";

/// A document as the library can read it: behind one that breaks off, it looks at a byte more.
class Document {
public:
    explicit Document(std::string_view text) : text_(text), size_(static_cast<int>(text.size())) {
        text_.append(kMargin, '\0');
    }

    const char* Data() const { return text_.data(); }
    int Size() const { return size_; }

private:
    static constexpr std::size_t kMargin = 16;

    std::string text_;
    int size_;
};

/// The elements of a message, by name without prefix. The library's own reader of whole lists isn't used, since it
/// takes port 70000 for 4464.
class Elements {
public:
    explicit Elements(std::string_view xml) {
        const Document document(xml);
        ParseNameValue(document.Data(), document.Size(), &data_);
    }
    Elements(const Elements&) = delete;
    Elements& operator=(const Elements&) = delete;
    ~Elements() { ClearNameValueList(&data_); }

    bool Has(const char* name) const { return GetValueFromNameValueList(&data_, name) != nullptr; }

    std::string_view Get(const char* name) const {
        const char* value = GetValueFromNameValueList(&data_, name);
        return value == nullptr ? std::string_view() : value;
    }

    /// The document inside NewPortListing.
    std::string_view Listing() const {
        return data_.portListing == nullptr
                   ? std::string_view()
                   : std::string_view(data_.portListing, static_cast<std::size_t>(data_.portListingLength));
    }

private:
    mutable NameValueParserData data_{};  // the library's readers take it as not const
};

bool EqualsIgnoringCase(std::string_view text, std::string_view other) {
    return text.size() == other.size() && strncasecmp(text.data(), other.data(), text.size()) == 0;
}

bool IsOn(std::string_view text) {
    return text == "1" || EqualsIgnoringCase(text, "true") || EqualsIgnoringCase(text, "yes");
}

/// The mapping of an entry; nothing when it isn't an enabled one of TCP, or makes no sense.
std::optional<PortMapping> ParseMapping(const Elements& entry) {
    const auto port = [&entry](const char* name) { return ParsePort(entry.Get(name)).value_or(0); };
    PortMapping mapping{port("NewExternalPort"), port("NewInternalPort"), {}};
    const std::string client(entry.Get("NewInternalClient"));
    const bool serves = mapping.routerPort != 0 && mapping.port != 0 && IsOn(entry.Get("NewEnabled")) &&
                        EqualsIgnoringCase(entry.Get("NewProtocol"), "TCP") &&
                        inet_pton(AF_INET, client.c_str(), &mapping.client) == 1;
    return serves ? std::optional(mapping) : std::nullopt;
}

Result<HttpAnswer> CallAction(GatewayHttp& http, const ConnectionService& connection, const std::string& action,
                              const std::string& arguments, const Deadline& deadline) {
    const std::string message =
        "<?xml version=\"1.0\"?>\r\n"
        "<s:Envelope xmlns:s=\"http://schemas.xmlsoap.org/soap/envelope/\" "
        "s:encodingStyle=\"http://schemas.xmlsoap.org/soap/encoding/\"><s:Body>"
        "<u:" +
        action + " xmlns:u=\"" + connection.type + "\">" + arguments + "</u:" + action + "></s:Body></s:Envelope>\r\n";
    return http.Post(connection.url, connection.type + "#" + action, message, deadline);
}

/// A list stands in its message as a document in CDATA, or with its markup escaped.
std::string Unescaped(std::string_view text) {
    constexpr std::array<std::pair<std::string_view, char>, 5> kEntities = {
        {{"&lt;", '<'}, {"&gt;", '>'}, {"&quot;", '"'}, {"&apos;", '\''}, {"&amp;", '&'}}};
    std::string plain;
    while (!text.empty()) {
        const auto* entity = std::find_if(kEntities.begin(), kEntities.end(),
                                          [text](const auto& entry) { return text.starts_with(entry.first); });
        const bool isEntity = entity != kEntities.end();
        plain += isEntity ? entity->second : text.front();
        text.remove_prefix(isEntity ? entity->first.size() : 1);
    }
    return plain;
}

/// The entries of a list, cut at the tags of their element: between two of them is one entry, or nothing of interest.
MappingList ParseListing(std::string_view listing) {
    constexpr std::string_view kTagEnd = "PortMappingEntry>";
    MappingList list;
    for (int count = 0; !listing.empty(); ++count) {
        if (count == 2 * kMaxEntries) {
            list.cut = MakeError(ARDV_ERR_BAD_VALUE);
            break;
        }
        const std::size_t end = listing.find(kTagEnd);
        if (const std::optional<PortMapping> mapping = ParseMapping(Elements(listing.substr(0, end)))) {
            list.mappings.push_back(*mapping);
        }
        listing.remove_prefix(end == std::string_view::npos ? listing.size() : end + kTagEnd.size());
    }
    return list;
}

/// Reads the list by one action, which connections of version 2 have.
Result<MappingList> ReadWholeList(GatewayHttp& http, const ConnectionService& connection, const Deadline& deadline) {
    const Result<HttpAnswer> answer =
        CallAction(http, connection, "GetListOfPortMappings",
                   "<NewStartPort>0</NewStartPort><NewEndPort>65535</NewEndPort><NewProtocol>TCP</NewProtocol>"
                   "<NewManage>0</NewManage><NewNumberOfPorts>0</NewNumberOfPorts>",
                   deadline);
    if (!answer) {
        return answer.Reason();
    }
    const Elements elements(answer->body);
    if (elements.Get("errorCode") == kNoMappings) {
        return MappingList{};
    }
    const std::string_view listing = elements.Listing();
    if (answer->status != kHttpOk || listing.empty()) {
        return MakeError(ARDV_ERR_BAD_VALUE);
    }
    return listing.starts_with('<') ? ParseListing(listing) : ParseListing(Unescaped(listing));
}

/// Adds entry `index` to the list. True when there was one, false behind the last: the router answers an error (713, but
/// others are seen), or an entry for nobody.
Result<bool> ReadEntry(GatewayHttp& http, const ConnectionService& connection, int index, const Deadline& deadline,
                       MappingList& list) {
    const Result<HttpAnswer> answer =
        CallAction(http, connection, "GetGenericPortMappingEntry",
                   "<NewPortMappingIndex>" + std::to_string(index) + "</NewPortMappingIndex>", deadline);
    if (!answer) {
        return answer.Reason();
    }
    const Elements entry(answer->body);
    if (entry.Has("errorCode")) {
        return false;
    }
    if (answer->status != kHttpOk || !entry.Has("NewInternalClient")) {
        return MakeError(ARDV_ERR_BAD_VALUE);
    }
    if (const std::optional<PortMapping> mapping = ParseMapping(entry)) {
        list.mappings.push_back(*mapping);
    }
    return !entry.Get("NewInternalClient").empty();
}

/// Reads the list entry by entry.
Result<MappingList> WalkList(GatewayHttp& http, const ConnectionService& connection, const Deadline& deadline) {
    MappingList list;
    for (int index = 0; index < kMaxEntries; ++index) {
        const Result<bool> isThere = ReadEntry(http, connection, index, deadline, list);
        if (!isThere && index == 0) {
            return isThere.Reason();
        }
        if (!isThere) {
            list.cut = isThere.Reason();
            return list;
        }
        if (!*isThere) {
            return list;
        }
    }
    list.cut = MakeError(ARDV_ERR_BAD_VALUE);
    return list;
}

Result<MappingList> ReadMappingsOf(GatewayHttp& http, const ConnectionService& connection, const Deadline& deadline) {
    if (connection.type.ends_with(":2")) {
        Result<MappingList> list = ReadWholeList(http, connection, deadline);
        if (list) {
            return list;
        }
    }
    return WalkList(http, connection, deadline);
}

void Append(MappingList& list, MappingList more) {
    std::move(more.mappings.begin(), more.mappings.end(), std::back_inserter(list.mappings));
    list.cut = list.cut ? list.cut : more.cut;
}

/// The connection that a description has at one of its two places; nothing when the place is empty, or names an address
/// elsewhere. A field that is full may have been cut.
std::optional<ConnectionService> ConnectionAt(const IGDdatas_service& place, const std::string& base, in_addr gateway) {
    const std::string_view type = place.servicetype;
    const std::string_view control = place.controlurl;
    const bool isWhole = type.size() + 1 < sizeof(place.servicetype) && control.size() + 1 < sizeof(place.controlurl);
    if (type.empty() || control.empty() || !isWhole) {
        return {};
    }
    const Result<std::string> url = UrlOnGateway(base, std::string(control), gateway);
    return url ? std::optional(ConnectionService{std::string(type), *url}) : std::nullopt;
}

}  // namespace

Result<std::vector<ConnectionService>> ReadConnections(GatewayHttp& http, const std::string& url, in_addr gateway,
                                                       const Deadline& deadline) {
    const Result<HttpAnswer> answer = http.Get(url, deadline);
    if (!answer) {
        return answer.Reason();
    }
    IGDdatas description{};
    if (answer->status == kHttpOk) {
        const Document document(answer->body);
        parserootdesc(document.Data(), document.Size(), &description);
    }
    const std::string base = description.urlbase[0] == '\0' ? url : description.urlbase;
    std::vector<ConnectionService> connections;
    for (const IGDdatas_service* place : {&description.first, &description.second}) {
        if (std::optional<ConnectionService> connection = ConnectionAt(*place, base, gateway)) {
            connections.push_back(*std::move(connection));
        }
    }
    return connections.empty() ? Result<std::vector<ConnectionService>>(MakeError(ARDV_ERR_BAD_VALUE))
                               : Result(std::move(connections));
}

Result<MappingList> ReadMappings(GatewayHttp& http, const std::vector<ConnectionService>& connections,
                                 const Deadline& deadline) {
    MappingList all;
    Failure failure = MakeError(ARDV_ERR_NO_ANSWER);
    bool isAnyRead = false;
    for (const ConnectionService& connection : connections) {
        Result<MappingList> list = ReadMappingsOf(http, connection, deadline);
        if (list) {
            isAnyRead = true;
            Append(all, std::move(*list));
        } else {
            failure = list.Reason();
            all.cut = failure;
        }
    }
    return isAnyRead ? Result(std::move(all)) : *failure;
}

}  // namespace ARDV::Platform
