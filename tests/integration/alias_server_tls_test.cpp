// SPDX-License-Identifier: Apache-2.0
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <stdexcept>
#include <string>

#include "integration/alias_server_fixture.h"

namespace ardv::test {
namespace {

class AliasServerTls : public testing::Test {
protected:
    std::unique_ptr<AliasServerProcess> Serve(const std::string& name) {
        return std::make_unique<AliasServerProcess>(
            AliasServerSettings{folder.Path() + "/" + name, certificates.Certificate(name), certificates.Key(name)});
    }

    /** The answer, or the number of the certificate's fault in parentheses. */
    std::string Post(const AliasServerProcess& server, const std::string& path = kUpdate) {
        httplib::SSLClient client("localhost", server.HttpsPort());
        client.set_ca_cert_path(certificates.Authority());
        client.enable_server_certificate_verification(true);
        const auto answer = client.Post(path, Fields{{"action", "none"}});
        return answer ? std::to_string(answer->status) + " " + answer->body
                      : "(" + std::to_string(client.get_openssl_verify_result()) + ")";
    }

    /** How the server ends the session of one request: SSL_get_error() of the last read. */
    static int EndOfSession(const AliasServerProcess& server) {
        const std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context(SSL_CTX_new(TLS_client_method()), SSL_CTX_free);
        const std::unique_ptr<SSL, decltype(&SSL_free)> tls(SSL_new(context.get()), SSL_free);
        const int socket = ConnectTo(server.HttpsPort());
        SSL_set_fd(tls.get(), socket);
        EXPECT_EQ(SSL_connect(tls.get()), 1);
        const std::string request = "POST /alias_update.php HTTP/1.1\r\nHost: a\r\nContent-Length: 3\r\n\r\na=b";
        EXPECT_GT(SSL_write(tls.get(), request.data(), static_cast<int>(request.size())), 0);
        char block[4096];
        int count = 1;
        while (count > 0) {
            count = SSL_read(tls.get(), block, sizeof block);
        }
        const int end = SSL_get_error(tls.get(), count);
        ERR_clear_error();
        ::close(socket);
        return end;
    }

    ScratchFolder folder;
    TestCertificates certificates{folder.Path() + "/certificates"};
};

TEST_F(AliasServerTls, ServesHttpAndHttpsAtOnce) {
    const auto server = Serve("valid");
    EXPECT_EQ(Post(*server), "200 badparam:action");
    httplib::Client plain(server->HttpUrl());
    EXPECT_EQ(plain.Post(kUpdate, Fields{{"action", "none"}})->body, "badparam:action");
    EXPECT_EQ(server->Requests()[0]["tls"], true);
    EXPECT_EQ(server->Requests()[1]["tls"], false);
}

TEST_F(AliasServerTls, PresentsEachCertificateWithItsFault) {
    EXPECT_EQ(Post(*Serve("expired")), "(" + std::to_string(X509_V_ERR_CERT_HAS_EXPIRED) + ")");
    EXPECT_EQ(Post(*Serve("not-yet-valid")), "(" + std::to_string(X509_V_ERR_CERT_NOT_YET_VALID) + ")");
    EXPECT_EQ(Post(*Serve("self-signed")), "(" + std::to_string(X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT) + ")");
    // The chain is good; only the name is not.
    EXPECT_EQ(Post(*Serve("wrong-host")), "(" + std::to_string(X509_V_OK) + ")");
}

TEST_F(AliasServerTls, KeepsTheTestInterfaceOffTheTlsPort) {
    const auto server = Serve("valid");
    EXPECT_EQ(Post(*server, "/sandbox/fault").substr(0, 3), "404");
    EXPECT_EQ(Post(*server, "/sandbox/registry").substr(0, 3), "404");
}

TEST_F(AliasServerTls, PlaysFaultsUnderTls) {
    const auto server = Serve("valid");
    server->SetFault(R"({"kind":"status","status":503,"body":"later"})");
    EXPECT_EQ(Post(*server), "503 later");
    for (const char* order : {R"({"kind":"cut"})", R"({"kind":"garbage","variant":"protocol"})"}) {
        server->SetFault(order);
        EXPECT_EQ(Post(*server), "(0)") << order;
    }
    server->SetFault(R"({"kind":"reply","body":"911"})");
    EXPECT_EQ(Post(*server), "200 911");
}

TEST_F(AliasServerTls, SaysFarewellUnlessItCuts) {
    const auto server = Serve("valid");
    EXPECT_EQ(EndOfSession(*server), SSL_ERROR_ZERO_RETURN);
    server->SetFault(R"({"kind":"cut"})");
    EXPECT_EQ(EndOfSession(*server), SSL_ERROR_SSL);
}

TEST_F(AliasServerTls, EndsQuicklyDuringAHandshake) {
    const auto server = Serve("valid");
    const int mute = ConnectTo(server->HttpsPort());
    EXPECT_EQ(Post(*server), "200 badparam:action");
    EXPECT_EQ(server->Stop(), 0) << "by itself within 10 seconds";
    ::close(mute);
}

TEST_F(AliasServerTls, SurvivesPlainTextOnItsTlsPort) {
    const auto server = Serve("valid");
    httplib::Client plain("http://127.0.0.1:" + std::to_string(server->HttpsPort()));
    EXPECT_FALSE(plain.Get("/"));
    EXPECT_EQ(Post(*server), "200 badparam:action");
}

TEST_F(AliasServerTls, KeepsKeysToTheirOwner) {
    for (const char* name : {"ca", "valid", "expired", "not-yet-valid", "wrong-host", "self-signed"}) {
        struct stat facts {};
        ASSERT_EQ(::stat(certificates.Key(name).c_str(), &facts), 0) << name;
        EXPECT_EQ(facts.st_mode & 0777U, 0600U) << name;
    }
}

TEST_F(AliasServerTls, RefusesToStartWithAKeyOfAnotherCertificate) {
    const AliasServerSettings mixed{folder.Path() + "/mixed", certificates.Certificate("valid"),
                                    certificates.Key("expired")};
    EXPECT_THROW(AliasServerProcess{mixed}, std::runtime_error);
    EXPECT_THROW(TestCertificates(folder.Path() + "/bad", {"not a host"}), std::runtime_error);
}

}  // namespace
}  // namespace ardv::test
