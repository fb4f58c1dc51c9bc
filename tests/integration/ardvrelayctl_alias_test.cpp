// SPDX-License-Identifier: Apache-2.0
#include <sys/mount.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "ardvrelayctl_fixture.h"

namespace ardv::test {
namespace {

using testing::HasSubstr;
using testing::Not;

constexpr const char kSerial[] = "AV0000000001";
constexpr const char kToken[] = "0123456789abcdef0123456789abcdef";
constexpr const char kApiKey[] = "example-api-key";

TEST_F(ArdvrelayctlAlias, MapsTheConfiguredAlias) {
    const auto result = Alias({"map"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out, "success\n");
    EXPECT_EQ(result.err, "");
    const auto record = server.Registry()["aliases"]["attic"];
    EXPECT_EQ(record["serial"], kSerial);
    EXPECT_EQ(record["id"], "box-1");
    EXPECT_EQ(record["model"], "AV-220");
}

TEST_F(ArdvrelayctlAlias, LivesThroughMapKeepAliveQueryAndDelete) {
    EXPECT_EQ(Alias({"map"}).exitCode, 0);
    EXPECT_EQ(Alias({"keep-alive"}).exitCode, 0);
    const auto query = Alias({"query"});
    EXPECT_EQ(query.exitCode, 0);
    EXPECT_THAT(query.out, HasSubstr("success\n"));
    EXPECT_THAT(query.out, HasSubstr("  alias: attic\n"));
    EXPECT_EQ(Alias({"delete"}).exitCode, 0);
    EXPECT_TRUE(server.Registry()["aliases"].empty());
}

TEST_F(ArdvrelayctlAlias, RecordsTheOutcomeInTheStatusFile) {
    Alias({"map"});
    EXPECT_EQ(ReadText(kStatusFile),
              "{\n   \"alias_name\" : \"attic\",\n   \"extra\" : \"\",\n   \"status\" : \"success\"\n}\n");
    EXPECT_EQ(ModeOf(kStatusFile), 0644U);
    AnswerWith("badauth:who are you");
    Alias({"keep-alive"});
    const auto status = Parse(ReadText(kStatusFile));
    EXPECT_EQ(status["status"], "error_auth");
    EXPECT_EQ(status["extra"], "who are you");
}

TEST_F(ArdvrelayctlAlias, DoesNotRecordAQuery) {
    Alias({"query"});
    EXPECT_EQ(ReadText(kStatusFile), "");
}

TEST_F(ArdvrelayctlAlias, SaysWhyItIsRefused) {
    Alias({"map"});
    WriteText("/etc/ardv/identity.conf",
              "serial=\"AV0000000002\"\ntoken=\"fedcba98\"\napi_key=\"k\"\nmac=\"02:00:5e:10:00:02\"\n");
    const auto result = Alias({"map"});
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_EQ(result.out, "error_inused\n");
    EXPECT_THAT(result.err, HasSubstr("another device holds the alias"));
}

struct ReplyCase {
    const char* reply;
    const char* word;
    int exitCode;
};

class ArdvrelayctlReply : public ArdvrelayctlAlias, public testing::WithParamInterface<ReplyCase> {};

TEST_P(ArdvrelayctlReply, BecomesAWordAndAnExitCode) {
    AnswerWith(GetParam().reply);
    const auto result = Alias({"keep-alive"});
    EXPECT_EQ(result.out, std::string(GetParam().word) + "\n");
    EXPECT_EQ(result.exitCode, GetParam().exitCode);
    EXPECT_EQ(result.err.empty(), result.exitCode == 0);
    EXPECT_EQ(Alias({"status"}).exitCode, GetParam().exitCode) << "the recorded outcome has the same exit code";
}

INSTANTIATE_TEST_SUITE_P(
    EachReply, ArdvrelayctlReply,
    testing::Values(ReplyCase{"good", "success", 0}, ReplyCase{"911", "error_911", 2},
                    ReplyCase{"badsys", "error_system", 2}, ReplyCase{"badauth", "error_auth", 3},
                    ReplyCase{"badip", "error_bad_ip", 3}, ReplyCase{"alias_not_found", "error_not_found", 2},
                    ReplyCase{"alias_inused", "error_inused", 3},
                    ReplyCase{"alias_self_inused", "error_self_inused", 3}, ReplyCase{"badparam", "error_bad_param", 2},
                    ReplyCase{"api_key_expired", "error_api_key_expired", 2},
                    ReplyCase{"violation", "error_violation", 3}, ReplyCase{"goodness", "error_unknown", 2},
                    ReplyCase{"<html>", "error_unknown", 2}, ReplyCase{"{}", "success", 0}),
    [](const auto& each) { return std::to_string(each.index) + "_" + each.param.word; });

TEST_F(ArdvrelayctlAlias, TellsABusyServerFromOneThatIsNotThere) {
    server.SetFault(R"({"kind":"status","status":503})");
    EXPECT_EQ(Alias({"keep-alive"}).out, "error_server_busy\n");
    server.Stop();
    const auto result = Alias({"keep-alive"});
    EXPECT_EQ(result.out, "error_network\n");
    EXPECT_EQ(result.exitCode, 2);
}

TEST_F(ArdvrelayctlAlias, GivesAnExitCodeOfItsOwnToANameThatDoesNotResolve) {
    const auto result = Alias({"keep-alive", "--url", "http://nowhere.zz"});
    EXPECT_EQ(result.out, "error_dns\n");
    EXPECT_EQ(result.exitCode, 1);
}

TEST_F(ArdvrelayctlAlias, PrintsJsonForPrograms) {
    const auto mapped = Parse(Alias({"map", "--json"}).out);
    EXPECT_EQ(mapped["action"], "map");
    EXPECT_EQ(mapped["alias"], "attic");
    EXPECT_EQ(mapped["result"], "success");
    EXPECT_EQ(mapped["code"], 1);
    EXPECT_EQ(mapped["retry"], "none");
    EXPECT_EQ(mapped["http_status"], 200);
    EXPECT_FALSE(mapped.isMember("answer"));
    EXPECT_EQ(Parse(Alias({"query", "--json"}).out)["answer"]["alias"], "attic");
    EXPECT_EQ(Parse(Alias({"status", "--json"}).out)["status"], "success");
    AnswerWith("badip");
    const auto refused = Parse(Alias({"keep-alive", "--json"}).out);
    EXPECT_EQ(refused["retry"], "user");
    EXPECT_EQ(refused["code"], 11);
    EXPECT_EQ(refused["exit_code"], 3);
    EXPECT_EQ(refused["error"], "the server refuses the device's address");
    const auto status = Parse(Alias({"status", "--json"}).out);
    EXPECT_EQ(status["exit_code"], 3);
    EXPECT_THAT(status["error"].asString(), HasSubstr(status["status"].asString()));
    EXPECT_FALSE(mapped.isMember("error") || mapped.isMember("exit_code"));
}

TEST_F(ArdvrelayctlAlias, MasksSecretsInADryRunAndSendsNothing) {
    WriteText("/root/password", "s3cret\n");
    std::filesystem::permissions("/root/password", std::filesystem::perms(0600));
    for (const bool json : {false, true}) {
        std::vector<std::string> command = {"map", "--dry-run",       "--account",
                                            "ann", "--password-file", "/root/password"};
        if (json) {
            command.emplace_back("--json");
        }
        const auto result = Alias(command);
        EXPECT_EQ(result.exitCode, 0) << result.err;
        EXPECT_THAT(result.out, HasSubstr("map_alias"));
        EXPECT_THAT(result.out, HasSubstr("***"));
        EXPECT_THAT(result.out, HasSubstr("ann"));
        for (const char* secret : {kToken, kApiKey, "s3cret"}) {
            EXPECT_THAT(result.out + result.err, Not(HasSubstr(secret)));
        }
    }
    EXPECT_TRUE(server.Requests().empty());
    EXPECT_EQ(ReadText(kStatusFile), "");
}

TEST_F(ArdvrelayctlAlias, NeverShowsSecretsInItsVerboseLog) {
    const auto result = Run({"--verbose", "alias", "map"});
    EXPECT_THAT(result.err, HasSubstr("HTTP: 200, Response: good"));
    for (const char* secret : {kToken, kApiKey}) {
        EXPECT_THAT(result.out + result.err, Not(HasSubstr(secret)));
    }
}

struct EchoCase {
    const char* name;
    std::string reply;
    std::string shown;
};

class ArdvrelayctlEcho : public ArdvrelayctlAlias, public testing::WithParamInterface<EchoCase> {};

TEST_P(ArdvrelayctlEcho, ShowsAndRecordsNoSecret) {
    WriteText("/root/password", "s3cret=&\n");
    std::filesystem::permissions("/root/password", std::filesystem::perms(0600));
    AnswerWith(GetParam().reply);
    std::vector<std::string> command = {"map", "--account", "ann", "--password-file", "/root/password"};
    const auto text = Alias(command);
    EXPECT_THAT(text.out + text.err, HasSubstr(GetParam().shown));
    AnswerWith(GetParam().reply);
    command.emplace_back("--json");
    const auto json = Alias(command);
    EXPECT_THAT(json.out, HasSubstr("***"));
    const auto everything = text.out + text.err + json.out + json.err + ReadText(kStatusFile) + Alias({"status"}).out;
    for (const char* secret : {kToken, kApiKey, "s3cret"}) {
        EXPECT_THAT(everything, Not(HasSubstr(secret)));
    }
}

INSTANTIATE_TEST_SUITE_P(
    EachWay, ArdvrelayctlEcho,
    testing::Values(EchoCase{"Detail", std::string("badauth:token=") + kToken + "&key=" + kApiKey,
                             "(token=***&key=***)"},
                    EchoCase{"FormEncoded", "badauth:kova_password=s3cret%3D%26", "(kova_password=***)"},
                    EchoCase{"FormEncodedInLowerCase", "badauth:kova_password=s3cret%3d%26", "(kova_password=***)"},
                    EchoCase{"Member", std::string(R"({"token":")") + kToken + R"("})", "token: ***"},
                    EchoCase{"WithinALongerText", std::string(R"({"a":"<)") + kApiKey + R"(>"})", "a: <***>"},
                    EchoCase{"Nested", std::string(R"({"a":[{"b":")") + kToken + R"("}]})", "***"},
                    EchoCase{"NameOfAMember", std::string(R"({")") + kToken + R"(":1})", "***: 1"}),
    [](const auto& each) { return std::string(each.param.name); });

TEST_F(ArdvrelayctlAlias, SendsTheOwnersAccountAndForce) {
    const auto result =
        Alias({"map", "--account", "ann", "--account-id", "7", "--password-file", "-", "--force"}, "s3cret\r\nrest");
    EXPECT_EQ(result.exitCode, 0) << result.err;
    const auto body = server.Requests()[0]["body"].asString();
    EXPECT_THAT(body, HasSubstr("kova_account=ann"));
    EXPECT_THAT(body, HasSubstr("kova_id=7"));
    EXPECT_THAT(body, HasSubstr("kova_password=s3cret&"));
    EXPECT_THAT(body, HasSubstr("force=true"));
}

TEST_F(ArdvrelayctlAlias, TakesAnotherAliasAndServerThanTheConfiguredOnes) {
    Configure("attic", "http://127.0.0.1:9");
    EXPECT_EQ(Alias({"map", "--alias", "cellar", "--url", server.HttpUrl()}).exitCode, 0);
    EXPECT_TRUE(server.Registry()["aliases"].isMember("cellar"));
    EXPECT_EQ(Alias({"status", "--alias", "cellar"}).out, "success\n");
    EXPECT_EQ(Alias({"status"}).exitCode, 4) << "the record belongs to another alias";
}

TEST_F(ArdvrelayctlAlias, ReadsTheConfigurationThatItIsGiven) {
    std::filesystem::copy(kConfigFile, "/tmp/other.conf");
    std::filesystem::remove(kConfigFile);
    EXPECT_EQ(Run({"--config", "/tmp/other.conf", "alias", "map"}).exitCode, 0);
    const auto result = Alias({"map"});
    EXPECT_EQ(result.exitCode, 78);
    EXPECT_THAT(result.err, HasSubstr(kConfigFile));
}

TEST_F(ArdvrelayctlAlias, SaysWhatIsMissing) {
    Configure("", server.HttpUrl());
    EXPECT_THAT(Alias({"map"}).err, HasSubstr("no alias is set"));
    EXPECT_EQ(Alias({"status"}).exitCode, 4);
    std::filesystem::remove("/etc/ardv/identity.conf");
    const auto result = Alias({"map"});
    EXPECT_THAT(result.err, HasSubstr("the device has no identity"));
    EXPECT_EQ(result.exitCode, 78);
    WriteText(kConfigFile, "{ damaged");
    EXPECT_THAT(Alias({"map"}).err, HasSubstr("damaged or not valid"));
}

TEST_F(ArdvrelayctlAlias, RefusesWrongUse) {
    for (const auto& wrong : std::vector<std::vector<std::string>>{
             {}, {"alias"}, {"alias", "fly"}, {"alias", "map", "--no-such"}, {"alias", "query", "--force"}}) {
        EXPECT_EQ(Run(wrong).exitCode, 64);
    }
    EXPECT_EQ(Alias({"map", "--password-file", "/nonexistent"}).exitCode, 78);
    EXPECT_EQ(Alias({"map", "--password-file", "/dev/null"}).exitCode, 78);
}

TEST_F(ArdvrelayctlAlias, HelpsAndTellsItsVersion) {
    EXPECT_EQ(Run({"--help"}).exitCode, 0);
    EXPECT_THAT(Alias({"map", "--help"}).out, HasSubstr("Exit codes:"));
    EXPECT_THAT(Run({"--version"}).out, testing::StartsWith("ardvrelayctl 7."));
}

/** Which certificates the tool trusts. */
struct TlsCase {
    const char* certificate;
    const char* word;
};

class ArdvrelayctlTls : public testing::TestWithParam<TlsCase> {};

TEST_P(ArdvrelayctlTls, TrustsOnlyAValidCertificate) {
    const TestCertificates certificates("/tmp/certificates");
    std::ofstream("/etc/ssl/certs/ca-certificates.crt", std::ios::app) << ReadText(certificates.Authority());
    std::ofstream("/etc/hosts", std::ios::app) << "127.0.0.1 alias.tethra.example\n";
    AliasServerProcess server({.folder = "/run/alias-server",
                               .certificate = certificates.Certificate(GetParam().certificate),
                               .key = certificates.Key(GetParam().certificate)});
    MakeDevice();
    WriteText(kConfigFile, "{\"serverID\":\"box-1\",\"server_alias\":{\"alias\":\"attic\"}}");
    const auto result = RunProgram({ARDV_RELAYCTL, "alias", "map", "--url", server.HttpsUrl("alias.tethra.example")});
    EXPECT_EQ(result.out, std::string(GetParam().word) + "\n") << result.err;
    EXPECT_EQ(server.Requests().size(), GetParam().word == std::string("success") ? 1U : 0U);
}

INSTANTIATE_TEST_SUITE_P(EachCertificate, ArdvrelayctlTls,
                         testing::Values(TlsCase{"valid", "success"}, TlsCase{"expired", "error_unknown"},
                                         TlsCase{"self-signed", "error_unknown"},
                                         TlsCase{"wrong-host", "error_unknown"},
                                         TlsCase{"not-yet-valid", "error_unknown"}),
                         [](const auto& each) {
                             std::string name = each.param.certificate;
                             std::replace(name.begin(), name.end(), '-', '_');
                             return name;
                         });

}  // namespace
}  // namespace ardv::test
