// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

namespace ardv::test {

/** Certificates for the TLS cases, made once when constructed. */
class TestCertificates {
public:
    /**
     * Makes them in `folder`, which need not exist.
     * @param hosts names and addresses to certify; empty: alias.tethra.example, localhost, 127.0.0.1 and ::1
     * @throws std::runtime_error with the reason when they can't be made
     */
    explicit TestCertificates(std::string folder, const std::vector<std::string>& hosts = {});

    /** The authority's certificate, for a client's list of trusted ones. */
    std::string Authority() const { return Certificate("ca"); }

    /** The certificate file `name`: "valid", "expired", "not-yet-valid", "wrong-host" or "self-signed". */
    std::string Certificate(const std::string& name) const { return folder_ + "/" + name + ".pem"; }

    /** The private key file of the same `name`. */
    std::string Key(const std::string& name) const { return folder_ + "/" + name + ".key"; }

private:
    std::string folder_;
};

}  // namespace ardv::test
