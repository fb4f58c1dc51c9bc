// SPDX-License-Identifier: Apache-2.0
// The daemon while the network around it changes: names, addresses, interfaces and certificates.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <atomic>
#include <fstream>
#include <stdexcept>
#include <thread>

#include "integration/daemon_fixture.h"
#include "support/handle.h"
#include "unit/platform/private_network.h"

namespace ardv::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr const char kName[] = "control.tethra.example";

/** A name server on 127.0.0.1 that knows no name, or says nothing at all. */
class NameServer {
public:
    enum class Manner { kKnowsNothing, kSilent };

    explicit NameServer(Manner manner) : socket_(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_port = htons(53);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (::bind(socket_.Number(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
            throw std::runtime_error("no name server");
        }
        if (manner == Manner::kKnowsNothing) {
            thread_ = std::thread([this] { Serve(); });
        }
        WriteText("/etc/resolv.conf", "nameserver 127.0.0.1\noptions timeout:1 attempts:1\n");
    }

    ~NameServer() {
        ::shutdown(socket_.Number(), SHUT_RDWR);  // wakes the thread, though it says that there is no connection
        isOver_ = true;
        if (thread_.joinable()) {
            thread_.join();
        }
    }

private:
    void Serve() {
        while (!isOver_) {
            pollfd entry{socket_.Number(), POLLIN, 0};
            if (::poll(&entry, 1, 20) == 1) {
                Answer();
            }
        }
    }

    void Answer() {
        char message[512];
        sockaddr_storage peer = {};
        socklen_t size = sizeof peer;
        const auto count =
            ::recvfrom(socket_.Number(), message, sizeof message, 0, reinterpret_cast<sockaddr*>(&peer), &size);
        if (count >= 12) {
            message[2] = static_cast<char>(0x81);  // an answer
            message[3] = static_cast<char>(0x83);  // that there is no such name
            ::sendto(socket_.Number(), message, static_cast<std::size_t>(count), 0,
                     reinterpret_cast<const sockaddr*>(&peer), size);
        }
    }

    Handle socket_;
    std::atomic<bool> isOver_ = false;
    std::thread thread_;
};

class DaemonNetwork : public DaemonTest {
protected:
    DaemonNetwork() { hosts_ = ReadText("/etc/hosts"); }

    static void UseHost(const std::string& host) {
        Edit([&](Json::Value& c) {
            for (const auto* server : {"server_global", "server_control", "server_waitcmd"}) {
                c[server]["host"] = host;
            }
        });
    }

    void NameIs(const std::string& address) const { WriteText("/etc/hosts", hosts_ + address + " " + kName + "\n"); }

    /** Gives the device a wired interface with the address 192.0.2.10. False: the kernel grants none. */
    bool MakeInterface() {
        if (RunProgram({"ip", "link", "add", "eth0", "type", "veth", "peer", "name", "far", "netns", outside_.Name()})
                .exitCode != 0) {
            return false;
        }
        Ip({"address", "add", "192.0.2.10/24", "dev", "eth0"});
        Ip({"link", "set", "eth0", "up"});
        return outside_.Ip("address add 192.0.2.1/24 dev far") && outside_.Ip("link set far up");
    }

    /** A program that is the control server in the network at the other end of the wire. */
    std::string ProgramOutside() const {
        std::string program = "/run/control-server-outside";
        WriteText(program, "#!/bin/sh\nexec nsenter -t " + outside_.Name() + " -n " ARDV_CONTROL_SERVER " \"$@\"\n");
        std::filesystem::permissions(program, std::filesystem::perms::owner_all);
        return program;
    }

    std::size_t Mappings() const { return alias.Requests().size(); }

private:
    std::string hosts_;
    ARDV::Platform::Test::OtherNetwork outside_;
};

TEST_F(DaemonNetwork, LogsInOnceTheNameIsKnown) {
    const NameServer server(NameServer::Manner::kKnowsNothing);
    UseHost(kName);
    Start();
    EXPECT_EQ(AwaitStatus("starting err_resolv"), "starting err_resolv");
    NameIs("127.0.0.1");
    EXPECT_EQ(AwaitStatus(kLoggedIn), kLoggedIn);
    ExpectOrderlyEnd();
}

TEST_F(DaemonNetwork, LogsInOnceTheResolverIsBack) {
    WriteText("/etc/resolv.conf", "nameserver 127.0.0.1\noptions timeout:1 attempts:1\n");
    UseHost(kName);
    Start();
    EXPECT_EQ(AwaitStatus("starting err_resolv"), "starting err_resolv");
    NameIs("127.0.0.1");
    EXPECT_EQ(AwaitStatus(kLoggedIn), kLoggedIn);
}

TEST_F(DaemonNetwork, LogsInOnceASilentResolverIsGotRound) {
    const NameServer server(NameServer::Manner::kSilent);
    UseHost(kName);
    Start();
    EXPECT_EQ(AwaitStatus("starting err_resolv"), "starting err_resolv");
    NameIs("127.0.0.1");
    EXPECT_EQ(AwaitStatus(kLoggedIn), kLoggedIn);
}

TEST_F(DaemonNetwork, FindsAServerThatHasAnotherAddressNow) {
    ControlServerProcess first({{.folder = "/run/first", .address = "127.0.0.2", .httpPort = control.HttpPort()}});
    ControlServerProcess second({{.folder = "/run/second", .address = "127.0.0.3", .httpPort = control.HttpPort()}});
    UseHost(kName);
    NameIs("127.0.0.2");
    Start();
    EXPECT_EQ(AwaitStatus(kLoggedIn), kLoggedIn);
    NameIs("127.0.0.3");
    first.Kill();
    EXPECT_EQ(AwaitStatus("starting err_network"), "starting err_network");
    EXPECT_TRUE(daemon->Reload());
    EXPECT_EQ(AwaitStatus(kLoggedIn), kLoggedIn);
    EXPECT_EQ(second.Sessions().size(), 1U);
}

TEST_F(DaemonNetwork, FindsAServerThatHasAnotherAddressInAnotherNetwork) {
    ControlServerProcess first({{.folder = "/run/first", .address = "127.0.0.2", .httpPort = control.HttpPort()}});
    ControlServerProcess second({{.folder = "/run/second", .address = "127.0.0.3", .httpPort = control.HttpPort()}});
    UseHost(kName);
    NameIs("127.0.0.2");
    Start();
    EXPECT_EQ(AwaitStatus(kLoggedIn), kLoggedIn);
    NameIs("127.0.0.3");
    first.Kill();
    EXPECT_EQ(AwaitStatus("starting err_network"), "starting err_network");
    Ip({"address", "add", "127.5.0.1/24", "dev", "lo"});
    EXPECT_EQ(AwaitStatus(kLoggedIn), kLoggedIn);
    EXPECT_EQ(second.Sessions().size(), 1U);
}

TEST_F(DaemonNetwork, TellsTheServersOfANewAddress) {
    if (!MakeInterface()) {
        GTEST_SKIP() << "this kernel has no virtual interfaces";
    }
    StartPatient();
    const auto mappings = Mappings();
    Ip({"address", "add", "198.51.100.7/24", "dev", "eth0"});
    EXPECT_TRUE(Await([&] { return Count("register") == 2; }));
    EXPECT_EQ(AwaitStatus(kLoggedIn), kLoggedIn);
    EXPECT_TRUE(Await([&] { return Mappings() == mappings + 1; }));
    Ip({"address", "del", "192.0.2.10/24", "dev", "eth0"});
    EXPECT_TRUE(Await([&] { return Count("register") == 3; }));
    EXPECT_EQ(AwaitStatus(kLoggedIn), kLoggedIn);
    EXPECT_TRUE(AwaitWait());
    const auto shown = Json::FastWriter().write(control.Sessions()[ServerId()]["registration"]["network"]);
    EXPECT_EQ(shown.find("192.0.2.10"), std::string::npos) << shown;
}

TEST_F(DaemonNetwork, TriesAtOnceWhenTheInterfaceIsUpAgain) {
    if (!MakeInterface()) {
        GTEST_SKIP() << "this kernel has no virtual interfaces";
    }
    const ServerProcess server(ProgramOutside(), {.folder = "/run/far", .address = "192.0.2.1", .httpPort = 8080}, {});
    Edit([](Json::Value& c) { c["server_control"]["port"] = c["server_waitcmd"]["port"] = 8080; });
    UseHost("192.0.2.1");
    Start({"--retry-base", "60", "--retry-cap", "600"});
    EXPECT_EQ(AwaitStatus(kLoggedIn), kLoggedIn);
    EXPECT_EQ(AwaitAlias("success"), "success");
    Ip({"link", "set", "eth0", "down"});
    EXPECT_EQ(AwaitStatus("starting err_network"), "starting err_network");
    Ip({"link", "set", "eth0", "up"});
    EXPECT_EQ(AwaitStatus(kLoggedIn), kLoggedIn);
}

TEST_F(DaemonNetwork, GivesUpAConnectionThatIsNotAnswered) {
    if (!MakeInterface()) {
        GTEST_SKIP() << "this kernel has no virtual interfaces";
    }
    Ip({"neighbour", "add", "192.0.2.77", "lladdr", "02:00:5e:00:00:77", "dev", "eth0", "nud", "permanent"});
    UseHost("192.0.2.77");
    Start();
    EXPECT_EQ(AwaitStatus("starting success"), "starting success");
    EXPECT_EQ(AwaitStatus("starting err_network", seconds(25)), "starting err_network");
    UseHost("127.0.0.1");
    EXPECT_TRUE(daemon->Reload());
    EXPECT_EQ(AwaitStatus(kLoggedIn), kLoggedIn);
}

class Certificate : public DaemonNetwork, public testing::WithParamInterface<const char*> {
protected:
    Certificate() : certificates_("/run/certificates", {kName}) {
        std::ofstream("/etc/ssl/certs/ca-certificates.crt", std::ios::app) << ReadText(certificates_.Authority());
        NameIs("127.0.0.1");
        Present(GetParam());
    }

    void Present(const std::string& name) const {
        WriteText("/run/server.pem", ReadText(certificates_.Certificate(name)));
        WriteText("/run/server.key", ReadText(certificates_.Key(name)));
    }

private:
    TestCertificates certificates_;
};

INSTANTIATE_TEST_SUITE_P(Of, Certificate, testing::Values("self-signed", "wrong-host", "expired", "not-yet-valid"),
                         [](const testing::TestParamInfo<const char*>& name) {
                             std::string text = name.param;
                             std::replace(text.begin(), text.end(), '-', '_');
                             return text;
                         });

TEST_P(Certificate, OfTheControlServerIsRefusedUntilItIsAGoodOne) {
    ControlServerProcess server({{.folder = "/run/tls", .certificate = "/run/server.pem", .key = "/run/server.key"}});
    Edit([&](Json::Value& c) {
        c["server_control"]["protocol"] = "https";
        c["server_control"]["port"] = server.HttpsPort();
    });
    UseHost(kName);
    Start();
    EXPECT_EQ(AwaitStatus("starting err_network"), "starting err_network");
    EXPECT_EQ(server.Requests().size(), 0U);
    const auto error = DaemonReport()["errors"][0]["result"].asString();
    EXPECT_EQ(error.find("err_network (SSL "), 0U) << "the network itself is well: " << error;
    EXPECT_NE(daemon->Log().find("register failed: " + error), std::string::npos) << daemon->Log();
    Present("valid");
    server.Restart();
    EXPECT_TRUE(Await([&] { return !server.Sessions().empty(); })) << daemon->Log();
}

TEST_P(Certificate, OfTheAliasServerIsRefusedUntilItIsAGoodOne) {
    AliasServerProcess server({.folder = "/run/tls", .certificate = "/run/server.pem", .key = "/run/server.key"});
    Edit([&](Json::Value& c) { c["server_alias"]["url"] = server.HttpsUrl(kName); });
    Start();
    EXPECT_EQ(AwaitAlias("error_unknown"), "error_unknown");
    EXPECT_EQ(AwaitStatus(kLoggedIn), kLoggedIn);
    EXPECT_EQ(server.Requests().size(), 0U);
    Present("valid");
    server.Restart();
    EXPECT_EQ(AwaitAlias("success"), "success");
}

}  // namespace
}  // namespace ardv::test
