// SPDX-License-Identifier: Apache-2.0
#include <cstdio>
#include <filesystem>
#include <memory>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <relay/request/request.h>

#include "support/captured_log.h"
#include "support/curl_faults.h"
#include "support/file_text.h"
#include "support/http_server.h"

using namespace ardv::test;
using namespace ARDV::Relay;

namespace {

constexpr const char* kHost = "alias.tethra.example";
constexpr const char* kBundle = "/etc/ssl/certs/ca-certificates.crt";

// The name by which a directory of trusted certificates is searched.
std::string HashName(const std::string& path) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "re"), &std::fclose);
    const std::unique_ptr<X509, void (*)(X509*)> certificate(PEM_read_X509(file.get(), nullptr, nullptr, nullptr),
                                                             &X509_free);
    char name[32] = {};
    std::snprintf(name, sizeof name, "%08lx.0", X509_subject_name_hash(certificate.get()));
    return name;
}

class EncryptedRequest : public testing::Test {
protected:
    static void SetUpTestSuite() {
        folder_ = MakeCertificates({kHost});
        bundle_ = ReadText(kBundle);
    }

    EncryptedRequest() {
        WriteHosts("127.0.0.1", {kHost, "unnamed.example"});
        Request::CleanDnsCache();
        TrustBundle();
    }

    ~EncryptedRequest() override {
        WriteText(kBundle, bundle_);
        std::filesystem::remove(TrustLink());
    }

    static void TrustBundle() { WriteText(kBundle, bundle_ + ReadText(folder_ + "/ca.pem")); }
    static std::string TrustLink() { return "/etc/ssl/certs/" + HashName(folder_ + "/ca.pem"); }

    static std::unique_ptr<HttpServer> Serve(const std::string& name) {
        return std::make_unique<HttpServer>(Certificate{folder_ + "/" + name + ".pem", folder_ + "/" + name + ".key"});
    }

    static inline std::string folder_;
    static inline std::string bundle_;
};

TEST_F(EncryptedRequest, ReachesAServerWithAValidCertificate) {
    const auto server = Serve("valid");
    Request request(server->Url("/", kHost).c_str(), "a=1", true);
    EXPECT_TRUE(request.Send());
    EXPECT_EQ(request.GetResponse(), "ok");
    EXPECT_EQ(request.GetError(), RELAYD_RET_SUCCESS);
    EXPECT_EQ(server->Seen().at(0).body, "a=1");
}

TEST_F(EncryptedRequest, ReachesItAgainAndAgain) {
    const auto server = Serve("valid");
    Request request(server->Url("/", kHost).c_str(), "", false);
    EXPECT_TRUE(request.Send());
    EXPECT_TRUE(request.Send());
    ASSERT_TRUE(request.Set(server->Url("/", kHost), std::string(), false));
    EXPECT_TRUE(request.Send());
}

class RefusedCertificate : public EncryptedRequest, public testing::WithParamInterface<const char*> {};

TEST_P(RefusedCertificate, EndsTheTransferBeforeAnythingIsSent) {
    const auto server = Serve(GetParam());
    Request request(server->Url("/", kHost).c_str(), "token=secret", true);
    const CapturedLog log;
    EXPECT_FALSE(request.Send());
    EXPECT_EQ(request.GetCurlResult(), CURLE_PEER_FAILED_VERIFICATION);
    EXPECT_EQ(request.GetError(), static_cast<RELAYD_RET>(2));
    EXPECT_EQ(request.GetResponse(), "");
    EXPECT_TRUE(server->Seen().empty());
}

INSTANTIATE_TEST_SUITE_P(EncryptedRequest, RefusedCertificate,
                         testing::Values("expired", "not-yet-valid", "self-signed", "wrong-host"));

TEST_F(EncryptedRequest, RefusesAValidCertificateUnderAnotherName) {
    const auto server = Serve("valid");
    const CapturedLog log;
    for (const auto* host : {"unnamed.example", "127.0.0.1"}) {
        Request request(server->Url("/", host).c_str(), "", false);
        EXPECT_FALSE(request.Send());
        EXPECT_EQ(request.GetCurlResult(), CURLE_PEER_FAILED_VERIFICATION) << host;
    }
}

TEST_F(EncryptedRequest, RefusesACertificateOfAnAuthorityThatNobodyTrusts) {
    WriteText(kBundle, bundle_);
    const auto server = Serve("valid");
    Request request(server->Url("/", kHost).c_str(), "", false);
    const CapturedLog log;
    EXPECT_FALSE(request.Send());
    EXPECT_EQ(request.GetCurlResult(), CURLE_PEER_FAILED_VERIFICATION);
}

TEST_F(EncryptedRequest, VerifiesAlsoWhereTheSchemeIsInCapitals) {
    const auto server = Serve("self-signed");
    const auto url = "HTTPS" + server->Url("/", kHost).substr(5);
    Request request(url.c_str(), "", false);
    const CapturedLog log;
    EXPECT_FALSE(request.Send());
    EXPECT_EQ(request.GetCurlResult(), CURLE_PEER_FAILED_VERIFICATION);
}

TEST_F(EncryptedRequest, FailsAgainstAServerWithoutTls) {
    const HttpServer server;
    const auto url = "https" + server.Url().substr(4);
    Request request(url.c_str(), "", false);
    const CapturedLog log;
    EXPECT_FALSE(request.Send());
    EXPECT_EQ(request.GetCurlResult(), CURLE_SSL_CONNECT_ERROR);
    EXPECT_EQ(request.GetError(), RELAYD_RET_ERR_NETWORK);
}

TEST_F(EncryptedRequest, DoesNotTrustTheDirectoryWhileTheBundleCanBeRead) {
    WriteText(kBundle, bundle_);
    std::filesystem::create_symlink(folder_ + "/ca.pem", TrustLink());
    const auto server = Serve("valid");
    Request request(server->Url("/", kHost).c_str(), "", false);
    const CapturedLog log;
    EXPECT_FALSE(request.Send());
    EXPECT_EQ(request.GetCurlResult(), CURLE_PEER_FAILED_VERIFICATION);
}

TEST_F(EncryptedRequest, TrustsNobodyWhereThereIsNoBundle) {
    std::filesystem::remove(kBundle);
    std::filesystem::create_symlink(folder_ + "/ca.pem", TrustLink());
    const auto server = Serve("valid");
    Request request(server->Url("/", kHost).c_str(), "", false);
    const CapturedLog log;
    EXPECT_FALSE(request.Send());
    EXPECT_EQ(request.GetCurlResult(), CURLE_SSL_CACERT_BADFILE);
    EXPECT_EQ(request.GetError(), static_cast<RELAYD_RET>(2));
    EXPECT_TRUE(server->Seen().empty());
}

TEST_F(EncryptedRequest, KeepsTrustingWhileItIsUsedAgainAndAFreshOneDoesNot) {
    const auto server = Serve("valid");
    Request early(server->Url("/", kHost).c_str(), "", false);
    ASSERT_TRUE(early.Send());
    WriteText(kBundle, bundle_);
    EXPECT_TRUE(early.Send()) << "the parsed bundle is kept for a day";
    Request late(server->Url("/", kHost).c_str(), "", false);
    const CapturedLog log;
    EXPECT_FALSE(late.Send());
    EXPECT_EQ(late.GetCurlResult(), CURLE_PEER_FAILED_VERIFICATION);
}

TEST_F(EncryptedRequest, TakesUpAChangedBundle) {
    WriteText(kBundle, bundle_);
    const auto server = Serve("valid");
    {
        const CapturedLog log;
        Request early(server->Url("/", kHost).c_str(), "", false);
        EXPECT_FALSE(early.Send());
    }
    TrustBundle();
    Request late(server->Url("/", kHost).c_str(), "", false);
    EXPECT_TRUE(late.Send());
}

}  // namespace
