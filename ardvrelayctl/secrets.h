// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include <json/value.h>

namespace ardv::ctl {

/**
 * A value as it may be shown: user names and passwords in URLs are "***", and so are members with "pass", "secret",
 * "token", "key" or "credential" in their names, in whatever case, unless `showSecrets`.
 */
Json::Value Shown(const Json::Value& value, bool showSecrets);

/** Likewise the value of a dotted key, each part of which counts. */
Json::Value ShownMember(const std::string& key, const Json::Value& value, bool showSecrets);

/** "***" in the place of a text, or the text if `showSecrets`; an empty one stays empty. */
std::string Masked(const std::string& secret, bool showSecrets);

/** The secrets of a request, to be kept out of what the tool shows and records of its answer: a server may echo them. */
class SentSecrets {
public:
    /** @param fields the fields that are sent */
    explicit SentSecrets(const Json::Value& fields);
    ~SentSecrets();
    SentSecrets(const SentSecrets&) = delete;
    SentSecrets& operator=(const SentSecrets&) = delete;

    /** A text with "***" in the place of each secret, whether it stands there as it is or form-encoded. */
    std::string Hide(std::string text) const;

    /** Likewise a value, in its strings and numbers and in the names of its members. */
    Json::Value Hide(const Json::Value& value) const;

private:
    std::vector<std::string> spellings_;  // the longest first: one secret may be a part of another
};

}  // namespace ardv::ctl
