// SPDX-License-Identifier: Apache-2.0
#include <memory>

#include <ardv/system_service.h>

#include "ardvrelayctl_device.h"
#include "support/systemd_box.h"

namespace ardv::test {
namespace {

using testing::Contains;
using testing::Each;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

/** A device with a photo package, and with a secure shell that a real service manager runs. */
class ArdvrelayctlWalk : public ArdvrelayctlDevice {
protected:
    void SetUp() override {
        const std::string reason = SystemdBox::WhyNot();
        if (!reason.empty()) {
            GTEST_SKIP() << reason;
        }
        OfferUsualServices();
        InstallPackage("Pictara");
        WriteText(kDeviceSettings, "supportssh=\"yes\"\nssh_port=\"2222\"\n");
        manager_ = std::make_unique<SystemdBox>();
        manager_->AddUnit("sshd.service", "[Unit]\nDefaultDependencies=no\n[Service]\nExecStart=/bin/sleep infinity\n");
    }

    static std::vector<std::string> Offered() {
        const Json::Value report = RunJson({"service", "list"});
        std::vector<std::string> ids;
        for (const auto& row : report["services"]) {
            ids.push_back(row["id"].asString());
        }
        return ids;
    }

    std::unique_ptr<SystemdBox> manager_;
};

TEST_F(ArdvrelayctlWalk, OffersTheSecureShellAndNotThePhotosInFourCommands) {
    ASSERT_EQ(ARDVSystemdStart("sshd"), 0) << manager_->Console();
    EXPECT_EQ(Run({"config", "set", "tethra.enabled", "true"}).exitCode, 0);
    EXPECT_EQ(Run({"permission", "deny", "pictara"}).exitCode, 0);
    EXPECT_EQ(Run({"permission", "deny", "photo_portal"}).exitCode, 0);
    const auto result = Run({"service", "generate"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_THAT(result.out, HasSubstr("\nssh                 Secure shell  2222  -\n"));
    EXPECT_THAT(Offered(), Contains("ssh"));
    EXPECT_THAT(Offered(), Each(Not(StartsWith("photo"))));
    EXPECT_THAT(Run({"service", "list", "--all"}).out, HasSubstr("the group pictara is denied"));
}

TEST_F(ArdvrelayctlWalk, OffersThePhotosUnlessTheyAreDenied) {
    Run({"config", "set", "tethra.enabled", "true"});
    Run({"service", "generate"});
    EXPECT_THAT(Offered(), Contains("photo_http"));
    EXPECT_THAT(Offered(), Not(Contains("ssh"))) << "which does not run";
    const auto result = Run({"service", "add", "ssh"});
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_THAT(result.err, HasSubstr("its unit sshd.service is not active"));
    ASSERT_EQ(ARDVSystemdStart("sshd"), 0) << manager_->Console();
    EXPECT_EQ(Run({"service", "add", "ssh"}).exitCode, 0);
    EXPECT_THAT(Offered(), Contains("ssh"));
}

}  // namespace
}  // namespace ardv::test
