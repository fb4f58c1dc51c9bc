// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <json/json.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "integration/tunnel_fixture.h"
#include "support/control_server_process.h"
#include "support/program.h"

namespace ardv::test {

inline constexpr const char kDaemonConfig[] = "/usr/ardv/etc/ardvrelayd/ardvrelayd.conf";
inline constexpr const char kPermissions[] = "/usr/ardv/etc/ardvrelayd/services.conf";
inline constexpr const char kDaemonStatusFile[] = "/tmp/.ardvrelayd.status";
inline constexpr const char kPassword[] = "secret-of-the-box";
inline constexpr int kPublic = 45'000;  ///< the relay's port for the device's page
inline constexpr int kSuccess = 0;
inline constexpr int kNetworkError = 6;
inline constexpr std::chrono::seconds kLongestEnd{3};

/** The JSON of a text; null where it is none. */
inline Json::Value JsonFrom(const std::string& text) {
    Json::Value value;
    std::istringstream stream(text);
    std::string problems;
    return Json::parseFromStream(Json::CharReaderBuilder(), stream, &value, &problems) ? value : Json::Value();
}

/** A device's daemon, logged in at its control server over HTTPS, of whose two services the owner permits the one on kPage. */
class DaemonTunnelTest : public TunnelTest {
protected:
    void SetUp() override {
        TunnelTest::SetUp();
        if (IsSkipped()) {
            return;
        }
        MakeDevice();
        const TestCertificates certificates("/run/certificates", {kCloud});
        Trust(certificates.Authority());
        ControlServerSettings settings;
        settings.server.folder = "/run/control";
        settings.server.address = kCloud;
        settings.server.certificate = certificates.Certificate("valid");
        settings.server.key = certificates.Key("valid");
        control = std::make_unique<ControlServerProcess>(settings);
        WriteText("/etc/ardv/services.d/device.json",
                  R"([{"service":"dms","display_name":"Administration","ports":["5000"]},)"
                  R"({"service":"http","display_name":"Web","ports":["80"]},)"
                  R"({"service":"filara","display_name":"Filara","ports":["5009"]}])");
        WriteText("/var/packages/Filara/enabled", "");
        OfferPageAt(kPage);
        PermitPhotos(false);
        Configure({"hos", "filara"});
        // An address that becomes usable later is a change of the network.
        ASSERT_TRUE(Await([] { return RunIn("device", {"ip", "-6", "address", "show", "tentative"}).empty(); }));
    }

    // No daemon may tell the password, whatever happened to it.
    void TearDown() override {
        if (IsSkipped()) {
            return;
        }
        const std::string status = ReadText(kDaemonStatusFile);
        const std::string report = daemon && daemon->Runs() ? Json::FastWriter().write(DaemonReport()) : "";
        daemon.reset();
        for (const auto& told : {ReadText(DaemonProcess::kLog), status, report, ReadText("/var/log/openvpn.log")}) {
            EXPECT_EQ(told.find(kPassword), std::string::npos);
        }
        EXPECT_EQ(status.find("\"box\""), std::string::npos) << "the user's name is in the status file";
    }

    static void Trust(const std::string& authority) {
        const std::string trusted = "/etc/ssl/certs/ca-certificates.crt";
        WriteText(trusted, ReadText(trusted) + ReadText(authority));
    }

    static void OfferPageAt(int port) {
        WriteText("/etc/ardv/web.conf", "http_port=\"" + std::to_string(port) + "\"\n");
    }

    static void PermitPhotos(bool isPermitted) {
        WriteText(kPermissions, std::string(R"([{"id":"mobile_apps","enabled":true},{"id":"filara","enabled":)") +
                                    (isPermitted ? "true" : "false") + "}]");
    }

    void Configure(const std::vector<std::string>& offered, bool isEnabled = true) const {
        Json::Value configuration;
        configuration["tethra"]["enabled"] = isEnabled;
        configuration["log_level"] = 7;
        for (const auto* server : {"server_global", "server_control", "server_waitcmd"}) {
            configuration[server]["protocol"] = "https";
            configuration[server]["host"] = kCloud;
            configuration[server]["port"] = control->HttpsPort();
        }
        for (const auto& id : offered) {
            configuration["service"].append(Json::objectValue)["id"] = id;
        }
        configuration["serverID"] = JsonFrom(ReadText(kDaemonConfig))["serverID"];
        WriteText(kDaemonConfig, Json::FastWriter().write(configuration));
    }

    void Start(const std::vector<std::string>& options = DaemonProcess::Hasty()) {
        const InNamespace device("device");
        daemon = std::make_unique<DaemonProcess>(options);
    }

    /** Starts the daemon and waits until the service can send it commands. */
    void StartAndLogIn(const std::vector<std::string>& options = DaemonProcess::Hasty()) {
        Start(options);
        ASSERT_EQ(AwaitStatus("login success"), "login success") << daemon->Log();
        ASSERT_TRUE(Await([&] { return control->Sessions()[ServerId()]["waiting"].asBool(); })) << daemon->Log();
    }

    /** The identifier by which the service knows the device. */
    std::string ServerId() const { return control->Devices()["AV0000000001"]["serverID"].asString(); }

    static Json::Value Candidate(const Protocol& protocol, const std::string& port = "") {
        Json::Value candidate;
        candidate["type"] = "openvpn";
        candidate["protocol"] = protocol.name;
        candidate["port"] = port.empty() ? protocol.port : port;
        candidate["mtu"] = "1500";
        return candidate;
    }

    /** What the service assigns; as its test interface takes it. */
    static Json::Value Assignment(const std::vector<Json::Value>& candidates, const std::string& password = kPassword) {
        Json::Value order;
        order["relay"]["relay_ip"] = kRelay4;
        order["relay"]["relay_ipv6"] = kRelay6;
        order["relay"]["relay_user"] = "box";
        order["relay"]["relay_pass"] = password;
        order["candidates"] = Json::Value(Json::arrayValue);
        for (const auto& candidate : candidates) {
            order["candidates"].append(candidate);
        }
        order["forward"][0]["public"] = kPublic;
        order["forward"][0]["device"] = kPage;
        return order;
    }

    /** Has the service assign this, and order the tunnel. Gives the command's identifier. */
    std::string OrderAs(const Json::Value& assignment) const {
        return control->OpenTunnel(ServerId(), assignment.toStyledString())["id"].asString();
    }

    std::string Order(const std::vector<Json::Value>& candidates, const std::string& password = kPassword) const {
        return OrderAs(Assignment(candidates, password));
    }

    std::string Close() const { return control->CloseTunnel(ServerId()); }

    /** The result of a command; -1 when none came in time. */
    int AwaitResult(const std::string& id, std::chrono::milliseconds limit = kPatience) const {
        int found = -1;
        Await(
            [&] {
                for (const auto& result : control->Results()) {
                    found = result["id"] == id ? result["result"].asInt() : found;
                }
                return found >= 0;
            },
            limit);
        return found;
    }

    /** What the status file says of the tunnel. */
    static Json::Value TunnelInStatus() {
        const auto status = JsonFrom(ReadText(kDaemonStatusFile));
        return status.isObject() ? status["tunnel"] : Json::Value();
    }

    static std::string TunnelWord() {
        const auto tunnel = TunnelInStatus();
        return tunnel.isObject() ? tunnel["status"].asString() : "";
    }

    static std::string AwaitTunnel(const std::string& word, std::chrono::milliseconds limit = kPatience) {
        std::string seen;
        Await([&] { return (seen = TunnelWord()) == word; }, limit);
        return seen;
    }

    /** Starts the daemon, and has a tunnel opened by one candidate. */
    void BringUp(const Protocol& protocol = kUdp) {
        StartAndLogIn();
        ASSERT_EQ(AwaitResult(Order({Candidate(protocol)})), kSuccess) << daemon->Log();
        ASSERT_EQ(AwaitTunnel("READY"), "READY");
    }

    /** Fetches the page as a client does that has no way to the device but by the relay. */
    static bool ClientGetsThePage() {
        return Fetch("client", kRelay4, kPublic) == DeviceServices::Page() &&
               Fetch("client", kRelay6, kPublic) == DeviceServices::Page();
    }

    static bool AwaitPage(std::chrono::milliseconds limit = kPatience) { return Await(ClientGetsThePage, limit); }

    /** How many requests of a command the service has had. */
    std::size_t Count(const std::string& command) const {
        const auto requests = control->Requests();
        const auto isOne = [&](const auto& r) { return JsonFrom(r["body"].asString())["command"] == command; };
        return static_cast<std::size_t>(std::count_if(requests.begin(), requests.end(), isOne));
    }

    static std::vector<int> Accepted() {
        EXPECT_EQ(AcceptedPorts("iptables"), AcceptedPorts("ip6tables"));
        return AcceptedPorts("iptables");
    }

    static ProgramResult Tool(std::vector<std::string> words) {
        words.insert(words.begin(), ARDV_RELAYCTL);
        const InNamespace device("device");
        return RunProgram(words);
    }

    std::unique_ptr<ControlServerProcess> control;
    std::unique_ptr<DaemonProcess> daemon;
};

}  // namespace ardv::test
