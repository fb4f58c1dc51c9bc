// SPDX-License-Identifier: Apache-2.0
// The form-encoded body of an alias request.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace ARDV::Sandbox {

/// The fields of one form-encoded body, decoded. Immutable once parsed.
class Form {
public:
    /// The most fields that a form may have.
    static constexpr size_t kMaxFields = 64;

    /// Reads `body`: NAME=VALUE pieces joined by "&"; "%" with two hexadecimal digits is a byte and "+" a blank. An
    /// empty body is a form without fields. Failure (nothing): a piece without "=", an empty name, a name twice, a
    /// broken "%" sequence, text that is not UTF-8 or holds control characters, or more than kMaxFields fields.
    static std::optional<Form> Parse(std::string_view body);

    /// The value of `name`, or nullptr when the form has no such field. Valid as long as the form.
    const std::string* Find(std::string_view name) const;

    /// The value of `name`, or the empty text.
    std::string Get(std::string_view name) const;

    /// All fields as NAME=VALUE joined by "&", in order of names, for the log: bounded, printable, and with the values
    /// of token, key, kova_password and auth_key replaced by "***".
    std::string Masked() const;

private:
    bool AddPiece(std::string_view piece);

    std::map<std::string, std::string, std::less<>> fields_;
};

}  // namespace ARDV::Sandbox
