// SPDX-License-Identifier: Apache-2.0
#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <relay/request/request_alias.h>

#include "support/captured_log.h"
#include "support/curl_faults.h"
#include "support/file_text.h"
#include "support/message_level.h"
#include "support/system_log.h"

using namespace ardv::test;
using namespace ARDV::Relay;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr const char* kBase = "http://127.0.0.1:9";

Json::Value ValidData() {
    Json::Value data;
    data["alias"] = "box";
    data["serial"] = "AV0000000001";
    data["token"] = "t/ k";
    data["id"] = "1234567";
    data["url"] = kBase;
    return data;
}

Json::Value FullData() {
    Json::Value data = ValidData();
    data["kova_account"] = "owner@kova.example";
    data["kova_password"] = "p&w=d";
    data["kova_id"] = "77";
    data["auth_key"] = "k+y";
    data["force"] = "true";
    data["smartdns_support_type"] = 3;
    data["unknown"] = "never sent";
    return data;
}

class AliasRequestSetUp : public testing::Test {
protected:
    AliasRequestSetUp() { MakeDevice(); }

    std::string Post() const {
        std::string url;
        std::string post;
        EXPECT_TRUE(request_.GetRequest(url, post));
        return post;
    }

    std::string Url() const {
        std::string url;
        std::string post;
        EXPECT_TRUE(request_.GetRequest(url, post));
        return url;
    }

    Json::Value Fields() const {
        Json::Value fields;
        std::string url;
        request_.GetRequest(fields, url);
        return fields;
    }

    AliasRequest request_;
};

struct Command {
    int cmd;
    const char* page;
    std::string body;
};

void PrintTo(const Command& command, std::ostream* stream) {
    *stream << "command " << command.cmd;
}

const auto kOwnerBody = [](const std::string& action) {
    return "action=" + action +
           "&alias=box&id=1234567&key=example-api-key&mac=02%3A00%3A5e%3A10%3A00%3A01&model=AV-220"
           "&serial=AV0000000001&token=t%2F%20k";
};

const std::string kIdentityBody = "key=example-api-key&mac=02%3A00%3A5e%3A10%3A00%3A01&model=AV-220";

class AliasCommand : public AliasRequestSetUp, public testing::WithParamInterface<Command> {};

TEST_P(AliasCommand, PostsItsFieldsToItsPage) {
    const CurlFaults faults;
    ASSERT_TRUE(request_.SetRequest(static_cast<ALIAS_REQUEST_CMD>(GetParam().cmd), FullData()));
    EXPECT_EQ(Post(), GetParam().body);
    EXPECT_EQ(Url(), std::string(kBase) + "/" + GetParam().page);
    EXPECT_EQ(faults.Last(CURLOPT_COPYPOSTFIELDS)->text, GetParam().body);
    EXPECT_EQ(faults.Last(CURLOPT_URL)->text, std::string(kBase) + "/" + GetParam().page);
}

INSTANTIATE_TEST_SUITE_P(
    AliasRequestSetUp, AliasCommand,
    testing::Values(Command{1, "alias_update.php",
                            "action=map_alias&alias=box&auth_key=k%2By&force=true&id=1234567&key=example-api-key"
                            "&kova_account=owner%40kova.example&kova_id=77&kova_password=p%26w%3Dd"
                            "&mac=02%3A00%3A5e%3A10%3A00%3A01&model=AV-220&serial=AV0000000001"
                            "&smartdns_support_type=3&token=t%2F%20k"},
                    Command{2, "alias_update.php", kOwnerBody("delete_alias")},
                    Command{3, "alias_update.php", kOwnerBody("keep_alive_alias")},
                    Command{4, "alias_query.php", "action=query_alias&alias=box&" + kIdentityBody},
                    Command{0, "", kIdentityBody}, Command{6, "", kIdentityBody}, Command{99, "", kIdentityBody},
                    Command{-1, "", kIdentityBody}));

TEST_F(AliasRequestSetUp, LeavesOutFieldsThatAreAbsent) {
    ASSERT_TRUE(request_.SetRequest(ALIAS_REQUEST_CMD_MAP, ValidData()));
    EXPECT_EQ(Post(), kOwnerBody("map_alias"));
}

TEST_F(AliasRequestSetUp, LeavesOutFieldsOfAnotherType) {
    Json::Value data = FullData();
    data["force"] = true;
    data["kova_account"] = 5;
    data["kova_id"] = Json::Value();
    data["kova_password"] = Json::arrayValue;
    data["auth_key"] = Json::objectValue;
    data["smartdns_support_type"] = "3";
    ASSERT_TRUE(request_.SetRequest(ALIAS_REQUEST_CMD_MAP, data));
    EXPECT_EQ(Post(), kOwnerBody("map_alias"));
    EXPECT_EQ(Fields().getMemberNames(),
              (std::vector<std::string>{"action", "alias", "id", "key", "mac", "model", "serial", "token"}));
}

TEST_F(AliasRequestSetUp, SendsANumberAsItsDecimalText) {
    Json::Value data = ValidData();
    for (const auto& [number, text] : {std::pair(Json::Value(0), "0"), std::pair(Json::Value(-7), "-7"),
                                       std::pair(Json::Value(2147483647), "2147483647")}) {
        data["smartdns_support_type"] = number;
        ASSERT_TRUE(request_.SetRequest(ALIAS_REQUEST_CMD_MAP, data));
        EXPECT_THAT(Post(), testing::HasSubstr(std::string("&smartdns_support_type=") + text + "&"));
    }
    data["smartdns_support_type"] = Json::Value(Json::Int64{4000000000});
    ASSERT_TRUE(request_.SetRequest(ALIAS_REQUEST_CMD_MAP, data));
    EXPECT_FALSE(Fields().isMember("smartdns_support_type")) << "no 32-bit integer";
}

TEST_F(AliasRequestSetUp, ForgetsTheRequestBefore) {
    const CurlFaults faults;
    ASSERT_TRUE(request_.SetRequest(ALIAS_REQUEST_CMD_MAP, FullData()));
    ASSERT_TRUE(request_.SetRequest(ALIAS_REQUEST_CMD_NONE, FullData()));
    EXPECT_EQ(Post(), kIdentityBody);
    EXPECT_EQ(faults.Last(CURLOPT_COPYPOSTFIELDS)->text, kIdentityBody);
}

TEST_F(AliasRequestSetUp, ReadsTheIdentityBeforeItLooksAtItsData) {
    std::filesystem::remove("/etc/ardv/identity.conf");
    const CapturedLog log(3);
    EXPECT_FALSE(request_.SetRequest(ALIAS_REQUEST_CMD_QUERY, Json::Value()));
    EXPECT_THAT(log.Messages(), ElementsAre(testing::StartsWith("auth_conf.cpp ARDVCloudServiceHstokenGetToken failed"),
                                            "request_alias.cpp data should be an object"));
}

TEST_F(AliasRequestSetUp, SendsAnEmptyIdentityWhereTheDeviceHasNone) {
    std::filesystem::remove("/etc/ardv/identity.conf");
    const CapturedLog log;
    ASSERT_TRUE(request_.SetRequest(ALIAS_REQUEST_CMD_QUERY, ValidData()));
    EXPECT_EQ(Post(), "action=query_alias&alias=box&key=&mac=&model=");
}

TEST_F(AliasRequestSetUp, AcceptsAUrlThatLibcurlRefuses) {
    CurlFaults faults;
    faults.noHandle = true;
    EXPECT_TRUE(request_.SetRequest(ALIAS_REQUEST_CMD_QUERY, ValidData()));
    ALIAS_RET ret = ALIAS_RET_911;
    ALIAS_RESPONSE_TYPE type = ALIAS_RESPONSE_TYPE_JSON;
    ExpectMessage(3, "request_alias.cpp No valid request found!! Please call SetRequest() first",
                  [&] { EXPECT_FALSE(request_.Send(ret, type)); });
    EXPECT_EQ(ret, ALIAS_RET_911);
    EXPECT_EQ(type, ALIAS_RESPONSE_TYPE_JSON);
}

TEST_F(AliasRequestSetUp, CannotBeSentBeforeItIsSet) {
    ALIAS_RET ret = ALIAS_RET_911;
    ExpectMessage(3, "request_alias.cpp No valid request found!! Please call SetRequest() first",
                  [&] { EXPECT_FALSE(request_.Send(ret)); });
    EXPECT_EQ(ret, ALIAS_RET_911);
    int status = 0;
    EXPECT_EQ(request_.GetResponse(status), -1);
    EXPECT_EQ(status, -1);
}

TEST_F(AliasRequestSetUp, HasNothingToShowBeforeItIsSet) {
    Json::Value fields = "as it was";
    std::string url = "as it was";
    std::string post = "as it was";
    EXPECT_FALSE(request_.GetRequest(fields, url));
    EXPECT_FALSE(request_.GetRequest(url, post));
    EXPECT_EQ(fields, "as it was");
    EXPECT_EQ(url, "as it was");
    EXPECT_EQ(post, "as it was");
    Json::Value json = 1;
    request_.GetResponse(json);
    EXPECT_TRUE(json.isNull());
    std::string text = "as it was";
    request_.GetResponse(text);
    EXPECT_EQ(text, "");
}

TEST_F(AliasRequestSetUp, ShowsItsFieldsAndAppendsItsForm) {
    ASSERT_TRUE(request_.SetRequest(ALIAS_REQUEST_CMD_NONE, ValidData()));
    Json::Value fields = "replaced";
    std::string url = "replaced";
    ASSERT_TRUE(request_.GetRequest(fields, url));
    EXPECT_EQ(url, std::string(kBase) + "/");
    EXPECT_EQ(fields["model"], "AV-220");
    EXPECT_EQ(fields.size(), 3U);
    url = "replaced";
    std::string post = "before:";
    ASSERT_TRUE(request_.GetRequest(url, post));
    EXPECT_EQ(url, std::string(kBase) + "/");
    EXPECT_EQ(post, "before:" + kIdentityBody);
}

TEST_F(AliasRequestSetUp, RefusesCommandFiveInTheSystemLog) {
    const auto text = SystemLogOf([this] { request_.SetRequest(ALIAS_REQUEST_CMD_REFUSED, ValidData()); });
    EXPECT_THAT(text, testing::StartsWith("<11>")) << "priority error of a user program";
    EXPECT_THAT(text, testing::EndsWith(": not specify request"));
}

TEST_F(AliasRequestSetUp, KeepsTheIdentityAloneAfterCommandFive) {
    ASSERT_TRUE(request_.SetRequest(ALIAS_REQUEST_CMD_QUERY, ValidData()));
    const auto url = Url();
    const CurlFaults faults;
    const CapturedLog log;
    EXPECT_FALSE(request_.SetRequest(ALIAS_REQUEST_CMD_REFUSED, FullData()));
    EXPECT_EQ(Fields().getMemberNames(), (std::vector<std::string>{"key", "mac", "model"}));
    EXPECT_EQ(Url(), url);
    EXPECT_EQ(faults.Count(CURLOPT_URL), 0U) << "the request that was set before stays";
    EXPECT_THAT(log.Lines(), IsEmpty()) << "the process log has no part in it";
}

struct Fault {
    const char* key;
    Json::Value value;  // null: the key is taken away
    const char* message;
};

void PrintTo(const Fault& fault, std::ostream* stream) {
    *stream << fault.message;
}

class AliasDataFault : public AliasRequestSetUp, public testing::WithParamInterface<Fault> {
protected:
    Json::Value Data() const {
        Json::Value data = FullData();
        if (GetParam().value.isNull()) {
            data.removeMember(GetParam().key);
        } else {
            data[GetParam().key] = GetParam().value;
        }
        return data;
    }
};

TEST_P(AliasDataFault, IsNamedAndChangesNothing) {
    ASSERT_TRUE(request_.SetRequest(ALIAS_REQUEST_CMD_QUERY, ValidData()));
    const auto fields = Fields();
    const auto message = std::string("request_alias.cpp ") + GetParam().message;
    ExpectMessage(3, message, [&] { EXPECT_FALSE(request_.IsDataValid(Data())); });
    for (int cmd = -1; cmd <= 6; ++cmd) {
        ExpectMessage(3, message,
                      [&] { EXPECT_FALSE(request_.SetRequest(static_cast<ALIAS_REQUEST_CMD>(cmd), Data())) << cmd; });
    }
    EXPECT_EQ(Fields(), fields);
    EXPECT_EQ(Url(), std::string(kBase) + "/alias_query.php");
}

INSTANTIATE_TEST_SUITE_P(
    AliasRequestSetUp, AliasDataFault,
    testing::Values(Fault{"alias", {}, "alias name is not found"}, Fault{"serial", {}, "serial is not found"},
                    Fault{"token", {}, "token is not found"}, Fault{"url", {}, "url is not found"},
                    Fault{"id", {}, "nubo_id is not found"}, Fault{"alias", "", "alias name is not string or empty"},
                    Fault{"serial", "", "serial is not string or empty"},
                    Fault{"token", "", "token is not string or empty"}, Fault{"url", "", "url is not string or empty"},
                    Fault{"id", "", "id is not string or empty"},
                    Fault{"alias", 5, "alias name is not string or empty"},
                    Fault{"serial", true, "serial is not string or empty"},
                    Fault{"token", 1.5, "token is not string or empty"},
                    Fault{"url", Json::Value(Json::arrayValue), "url is not string or empty"},
                    Fault{"id", Json::Value(Json::objectValue), "id is not string or empty"}));

TEST_F(AliasRequestSetUp, ChecksItsDataInAFixedOrder) {
    struct Repair {
        const char* key;
        const char* missing;
        const char* wrong;
    };
    const Repair repairs[] = {{"alias", "alias name is not found", "alias name is not string or empty"},
                              {"serial", "serial is not found", "serial is not string or empty"},
                              {"token", "token is not found", "token is not string or empty"},
                              {"url", "url is not found", "url is not string or empty"},
                              {"id", "nubo_id is not found", "id is not string or empty"}};
    Json::Value data(Json::objectValue);
    const CapturedLog log;
    std::vector<std::string> expected;
    for (const auto& [key, missing, wrong] : repairs) {
        EXPECT_FALSE(request_.IsDataValid(data));
        expected.push_back(std::string("request_alias.cpp ") + missing);
        data[key] = Json::nullValue;
    }
    for (const auto& [key, missing, wrong] : repairs) {
        EXPECT_FALSE(request_.IsDataValid(data));
        expected.push_back(std::string("request_alias.cpp ") + wrong);
        data[key] = "x";
    }
    EXPECT_TRUE(request_.IsDataValid(data));
    EXPECT_EQ(log.Messages(), expected);
}

TEST_F(AliasRequestSetUp, RefusesDataThatIsNoObject) {
    for (const auto& data : {Json::Value(), Json::Value("text"), Json::Value(5), Json::Value(Json::arrayValue)}) {
        const std::string message = "request_alias.cpp data should be an object";
        ExpectMessage(3, message, [&] { EXPECT_FALSE(request_.IsDataValid(data)); });
        ExpectMessage(3, message, [&] { EXPECT_FALSE(request_.SetRequest(ALIAS_REQUEST_CMD_QUERY, data)); });
    }
}

TEST_F(AliasRequestSetUp, AcceptsValidDataSilently) {
    const CapturedLog log;
    EXPECT_TRUE(request_.IsDataValid(ValidData()));
    EXPECT_THAT(log.Lines(), IsEmpty());
}

}  // namespace
