// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <relay/request/request_alias.h>

#include "support/alias_server_process.h"
#include "support/captured_log.h"
#include "support/file_text.h"

namespace ardv::test {
namespace {

using namespace ARDV::Relay;

class AliasExchangeWithServer : public testing::Test {
protected:
    AliasExchangeWithServer() {
        MakeDevice();
        data_["alias"] = "box";
        data_["serial"] = "AV0000000001";
        data_["token"] = "0123456789abcdef0123456789abcdef";
        data_["id"] = "1234567";
        data_["url"] = server_.HttpUrl();
    }

    ALIAS_RET Send(ALIAS_REQUEST_CMD cmd) {
        auto ret = static_cast<ALIAS_RET>(0);
        const CapturedLog log;
        EXPECT_TRUE(request_.SetRequest(cmd, data_));
        sent_ = request_.Send(ret, type_);
        return ret;
    }

    AliasServerProcess server_{AliasServerSettings{.folder = "/tmp/alias-exchange"}};
    Json::Value data_;
    AliasRequest request_;
    ALIAS_RESPONSE_TYPE type_ = ALIAS_RESPONSE_TYPE_NONE;
    bool sent_ = false;
};

TEST_F(AliasExchangeWithServer, MapsKeepsQueriesAndDeletesAnAlias) {
    EXPECT_EQ(Send(ALIAS_REQUEST_CMD_KEEP_ALIVE), ALIAS_RET_NOT_FOUND);
    EXPECT_EQ(Send(ALIAS_REQUEST_CMD_MAP), ALIAS_RET_SUCCESS);
    EXPECT_EQ(type_, ALIAS_RESPONSE_TYPE_TEXT);
    EXPECT_EQ(server_.Registry()["aliases"]["box"]["serial"], "AV0000000001");
    EXPECT_EQ(Send(ALIAS_REQUEST_CMD_KEEP_ALIVE), ALIAS_RET_SUCCESS);
    EXPECT_EQ(Send(ALIAS_REQUEST_CMD_QUERY), ALIAS_RET_SUCCESS);
    EXPECT_EQ(type_, ALIAS_RESPONSE_TYPE_JSON);
    EXPECT_EQ(Send(ALIAS_REQUEST_CMD_DELETE), ALIAS_RET_SUCCESS);
    EXPECT_EQ(Send(ALIAS_REQUEST_CMD_QUERY), ALIAS_RET_NOT_FOUND);
    EXPECT_FALSE(server_.Registry()["aliases"].isMember("box"));
}

TEST_F(AliasExchangeWithServer, IsRefusedWithAnotherToken) {
    EXPECT_EQ(Send(ALIAS_REQUEST_CMD_MAP), ALIAS_RET_SUCCESS);
    data_["token"] = "guess";
    EXPECT_EQ(Send(ALIAS_REQUEST_CMD_DELETE), ALIAS_RET_AUTH);
    EXPECT_EQ(Send(ALIAS_REQUEST_CMD_NONE), ALIAS_RET_NETWORK) << "there is no page without a command";
}

TEST_F(AliasExchangeWithServer, OutlivesARestartOfTheServer) {
    EXPECT_EQ(Send(ALIAS_REQUEST_CMD_MAP), ALIAS_RET_SUCCESS);
    server_.Stop();
    EXPECT_EQ(Send(ALIAS_REQUEST_CMD_KEEP_ALIVE), ALIAS_RET_NETWORK);
    EXPECT_EQ(type_, ALIAS_RESPONSE_TYPE_NONE);
    EXPECT_TRUE(sent_);
    server_.Start();
    EXPECT_EQ(Send(ALIAS_REQUEST_CMD_KEEP_ALIVE), ALIAS_RET_SUCCESS);
}

}  // namespace
}  // namespace ardv::test
