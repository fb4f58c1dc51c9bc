// SPDX-License-Identifier: Apache-2.0
#include <relay/config/kova_conf.h>

#include <relay/common/deployment.h>

#include "support/device_test.h"

namespace ARDV::Relay {

namespace {

using namespace ardv::test;

TEST(KovaConf, StartsWithoutAnAccountAtTheServicesHost) {
    const KovaConf account;
    EXPECT_EQ(account.GetKovaAccount(), "");
    EXPECT_EQ(account.GetHost(), Deployment::kAccountHost);
    EXPECT_NE(account.GetHost(), "");
    EXPECT_TRUE(account.IsValid());
}

TEST(KovaConf, TakesTextsAlone) {
    KovaConf account;
    EXPECT_TRUE(account.Overwrite(JsonOf(R"({"account":"owner","host":"other.zz","more":1})")));
    EXPECT_TRUE(account.Overwrite(JsonOf(R"({"account":5,"host":null})")));
    EXPECT_TRUE(account.Overwrite(JsonOf(R"({"account":["x"],"host":{}})")));
    EXPECT_EQ(account.GetKovaAccount(), "owner");
    EXPECT_EQ(account.GetHost(), "other.zz");
    EXPECT_TRUE(account.Overwrite(JsonOf(R"({"host":"third.zz"})")));
    EXPECT_EQ(account.GetKovaAccount(), "owner");
    EXPECT_EQ(account.GetHost(), "third.zz");
}

TEST(KovaConf, IsValidWhateverItHolds) {
    KovaConf account;
    account.Overwrite(JsonOf(R"({"account":"","host":""})"));
    EXPECT_TRUE(account.IsValid());
}

TEST(KovaConf, WritesAnotherHostInFullOnly) {
    KovaConf account;
    account.SetKovaAccount("owner");
    EXPECT_EQ(Written(account, true), "{\"account\":\"owner\"}\n");
    EXPECT_EQ(Written(account, false), "{\"account\":\"owner\"}\n");
    account.Overwrite(JsonOf(R"({"host":"other.zz"})"));
    EXPECT_EQ(Written(account, true), "{\"account\":\"owner\",\"host\":\"other.zz\"}\n");
    EXPECT_EQ(Written(account, false), "{\"account\":\"owner\"}\n");
}

TEST(KovaConf, ReplacesTheAccountAlone) {
    KovaConf account;
    account.SetKovaAccount("first");
    account.SetKovaAccount("second");
    EXPECT_EQ(account.GetKovaAccount(), "second");
    EXPECT_EQ(account.GetHost(), Deployment::kAccountHost);
}

}  // namespace

}  // namespace ARDV::Relay
