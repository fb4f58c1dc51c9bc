// SPDX-License-Identifier: Apache-2.0
#include <ardv/firewall_service.h>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <ardv/error.h>

#include "error_mark.h"
#include "made_file.h"
#include "support/file_opens.h"

namespace ARDV::Platform::Test {

namespace {

using ardv::test::FileOpens;

namespace fs = std::filesystem;

const std::string kFolder = "/etc/ardv/services.d";

struct Release {
    void operator()(ARDV_FW_SERVICE_LIST* list) const { ARDVFWServiceFree(list); }
};

/// A list, and the number that came with it.
struct Services {
    int count = 0;
    std::unique_ptr<ARDV_FW_SERVICE_LIST, Release> list;

    const ARDV_FW_SERVICE* Find(const char* name) const { return ARDVFWServiceFind(list.get(), name); }
};

Services Enum() {
    ARDV_FW_SERVICE_LIST* list = nullptr;
    const int count = ARDVFwServiceEnum(&list);
    EXPECT_EQ(list != nullptr, count > 0);
    return {count, std::unique_ptr<ARDV_FW_SERVICE_LIST, Release>(list)};
}

std::string Text(const char* text) {
    return text == nullptr ? "(null)" : text;
}

/// A service as one line; "(none)" for none.
std::string Describe(const ARDV_FW_SERVICE* service) {
    if (service == nullptr) {
        return "(none)";
    }
    std::string line = Text(service->service) + "|" + Text(service->section) + "|" + Text(service->title) + "|" +
                       Text(service->display_name) + "|";
    if (service->ports == nullptr) {
        EXPECT_EQ(service->port_count, 0);
        return line + "(null)";
    }
    for (int at = 0; at < service->port_count; ++at) {
        line += (at == 0 ? "" : ",") + Text(service->ports[at]);
    }
    return line;
}

void MakeServices(const std::string& name, const std::string& text) {
    WriteText(kFolder + "/" + name, text);
}

std::string Described(const std::string& text, const char* name = "s") {
    MakeServices("a.json", text);
    return Describe(Enum().Find(name));
}

void ExpectFailure(int code) {
    EXPECT_EQ(Enum().count, -1);
    EXPECT_EQ(ALIBCErrGet(), code);
}

void WaitForTheFileClock() {
    std::this_thread::sleep_until(std::chrono::steady_clock::now() + std::chrono::milliseconds(60));
}

class FirewallServices : public testing::Test {
protected:
    FirewallServices() {
        fs::remove_all(kFolder);
        fs::create_directories(kFolder);
    }
    ~FirewallServices() override { fs::remove_all(kFolder); }
};

}  // namespace

TEST_F(FirewallServices, AreNoneWithoutFolderOrFile) {
    const ErrorMark mark;
    EXPECT_EQ(Enum().count, 0);
    fs::remove_all(kFolder);
    EXPECT_EQ(Enum().count, 0);
    EXPECT_TRUE(mark.IsThere()) << "nothing has failed";
}

TEST_F(FirewallServices, HaveAllTheirTexts) {
    EXPECT_EQ(Described(R"([{"service":"s","section":"Files","title":"T","display_name":"D","ports":["80","443"]}])"),
              "s|Files|T|D|80,443");
}

TEST_F(FirewallServices, HaveNullForWhatIsMissingOrEmptyOrNoText) {
    EXPECT_EQ(Described(R"([{"service":"s"}])"), "s|(null)|(null)|(null)|(null)");
    EXPECT_EQ(Described(R"([{"service":"s","section":"","title":"","display_name":"","ports":[]}])"),
              "s|(null)|(null)|(null)|");
    EXPECT_EQ(Described(R"([{"service":"s","section":1,"title":[],"display_name":{},"ports":"80"}])"),
              "s|(null)|(null)|(null)|(null)");
    EXPECT_EQ(Described(R"([{"service":"s","section":null,"title":true,"display_name":1.5,"ports":{}}])"),
              "s|(null)|(null)|(null)|(null)");
}

TEST_F(FirewallServices, MayLackAName) {
    MakeServices("a.json", R"([{"title":"T"},{"service":7},{"service":"s"}])");
    const Services services = Enum();
    EXPECT_EQ(services.count, 3);
    EXPECT_EQ(Describe(services.Find("s")), "s|(null)|(null)|(null)|(null)");
    EXPECT_EQ(services.Find(""), nullptr);
}

TEST_F(FirewallServices, HavePortsThatAreTextsOrPortNumbers) {
    EXPECT_EQ(Described(R"([{"service":"s","ports":["6881:6889",80,65535,"x"]}])"),
              "s|(null)|(null)|(null)|6881:6889,80,65535,x");
    EXPECT_EQ(Described(R"([{"service":"s","ports":[0,-1,65536,1.0,99999999999999999999,null,true,[],{},""]}])"),
              "s|(null)|(null)|(null)|");
}

TEST_F(FirewallServices, HaveTextsUpToANul) {
    EXPECT_EQ(Described(R"([{"service":"s","title":"a\u0000b","section":"\u0000"}])"), "s|(null)|a|(null)|(null)");
}

TEST_F(FirewallServices, AreFoundByTheirExactNames) {
    MakeServices("a.json", R"([{"service":"dms","title":"1"},{"service":"dms_https"},{"service":"dms","title":"2"}])");
    const Services services = Enum();
    EXPECT_EQ(Describe(services.Find("dms")), "dms|(null)|1|(null)|(null)") << "the first one";
    EXPECT_NE(services.Find("dms_https"), nullptr);
    for (const char* name : {"DMS", "dm", "dms_", "", " dms"}) {
        EXPECT_EQ(services.Find(name), nullptr) << name;
    }
}

TEST_F(FirewallServices, ComeInTheOrderOfTheFilesNames) {
    MakeServices("20-late.json", R"([{"service":"s","title":"late"}])");
    MakeServices("10-early.json", R"([{"service":"s","title":"early"}])");
    EXPECT_EQ(Enum().count, 2);
    EXPECT_EQ(Text(Enum().Find("s")->title), "early");
}

TEST_F(FirewallServices, AreReadFromFilesOfTheirNameOnly) {
    for (const char* name : {"a.json.bak", "b.conf", ".hidden.json", ".json", "json"}) {
        MakeServices(name, R"([{"service":"s"}])");
    }
    EXPECT_EQ(Enum().count, 0);
}

TEST_F(FirewallServices, AreReadThroughALink) {
    const ScratchFolder package;
    const std::string file = MakeFile(package, "services", R"([{"service":"s"}])");
    ASSERT_EQ(symlink(file.c_str(), (kFolder + "/a.json").c_str()), 0);
    EXPECT_EQ(Enum().count, 1);
}

TEST_F(FirewallServices, SurviveElementsThatAreNoObjects) {
    EXPECT_EQ(Described(R"([null,1,"s",[],[{"service":"x"}],true,{"service":"s"}])"), "s|(null)|(null)|(null)|(null)");
    EXPECT_EQ(Enum().count, 1);
}

TEST_F(FirewallServices, AreNotHiddenByADamagedFile) {
    MakeServices("a.json", R"([{"service":"lost"},)");
    MakeServices("b.json", R"([{"service":"s"}])");
    ASSERT_EQ(mkfifo((kFolder + "/c.json").c_str(), 0600), 0);
    ASSERT_EQ(mkdir((kFolder + "/d.json").c_str(), 0700), 0);
    ASSERT_EQ(symlink("nowhere", (kFolder + "/e.json").c_str()), 0);
    EXPECT_EQ(Enum().count, 1);
    EXPECT_NE(Enum().Find("s"), nullptr);
}

TEST_F(FirewallServices, FailWhereNothingButDamageIsThere) {
    for (const char* text :
         {"", "[", "{}", R"({"service":"s"})", "null", "7", "\"s\"", "[}", "\xff\xfe", "[{]}", "\\"}) {
        MakeServices("a.json", text);
        ExpectFailure(ARDV_ERR_BAD_VALUE);
    }
    MakeServices("a.json", "[]");
    EXPECT_EQ(Enum().count, 0) << "an empty array is no damage";
}

TEST_F(FirewallServices, FailForEachFileThatCannotBeRead) {
    ASSERT_EQ(mkfifo((kFolder + "/a.json").c_str(), 0600), 0);
    ExpectFailure(ARDV_ERR_NOT_REGULAR);
    ASSERT_EQ(unlink((kFolder + "/a.json").c_str()), 0);
    ASSERT_EQ(symlink("nowhere", (kFolder + "/a.json").c_str()), 0);
    ExpectFailure(ARDV_ERR_NOT_FOUND);
    ASSERT_EQ(unlink((kFolder + "/a.json").c_str()), 0);
    MakeServices("a.json", "[" + std::string(1024 * 1024, ' ') + "]");
    ExpectFailure(ARDV_ERR_TOO_LARGE);
}

TEST_F(FirewallServices, FailWhereTheFolderIsNone) {
    fs::remove_all(kFolder);
    WriteText(kFolder, "");
    ExpectFailure(ARDV_ERR_NOT_FOUND);
    fs::remove(kFolder);
    ASSERT_EQ(symlink("services.d", kFolder.c_str()), 0);
    ExpectFailure(ARDV_ERR_ACCESS_DENIED);
}

TEST_F(FirewallServices, SurviveAnyDepth) {
    for (const std::size_t depth : {100U, 1000U, 5000U, 100'000U, 500'000U}) {
        MakeServices("a.json", std::string(depth, '[') + std::string(depth, ']'));
        EXPECT_LE(Enum().count, 0) << depth;
        MakeServices("a.json", "[{\"service\":" + std::string(depth, '[') + std::string(depth, ']') + "}]");
        EXPECT_LE(Enum().count, 1) << depth;
    }
    std::string objects;
    for (int level = 0; level < 100'000; ++level) {
        objects += "{\"a\":";
    }
    MakeServices("a.json", "[" + objects);
    ExpectFailure(ARDV_ERR_BAD_VALUE);
}

TEST_F(FirewallServices, AreBoundedInNumber) {
    std::string many = "[{\"service\":\"first\"}";
    for (int at = 1; at < 6000; ++at) {
        many += ",{}";
    }
    MakeServices("a.json", many + ",{\"service\":\"last\"}]");
    MakeServices("b.json", R"([{"service":"behind"}])");
    const Services services = Enum();
    EXPECT_EQ(services.count, 4096);
    EXPECT_NE(services.Find("first"), nullptr);
    EXPECT_EQ(services.Find("last"), nullptr);
    EXPECT_EQ(services.Find("behind"), nullptr);
}

TEST_F(FirewallServices, AreTakenFromABoundedNumberOfFiles) {
    for (int at = 100; at < 200; ++at) {
        MakeServices(std::to_string(at) + ".json", "[{\"service\":\"" + std::to_string(at) + "\"}]");
    }
    const Services services = Enum();
    EXPECT_EQ(services.count, 64);
    EXPECT_NE(services.Find("163"), nullptr);
    EXPECT_EQ(services.Find("164"), nullptr);
}

TEST_F(FirewallServices, OutliveTheFileAndOtherLists) {
    MakeServices("a.json", R"([{"service":"s","title":"old","ports":["1"]}])");
    const Services old = Enum();
    MakeServices("a.json", R"([{"service":"s","title":"new","ports":["2"]}])");
    EXPECT_EQ(Describe(Enum().Find("s")), "s|(null)|new|(null)|2");
    fs::remove_all(kFolder);
    EXPECT_EQ(Enum().count, 0);
    EXPECT_EQ(Describe(old.Find("s")), "s|(null)|old|(null)|1");
}

TEST_F(FirewallServices, TakeNullPointers) {
    EXPECT_LT(ARDVFwServiceEnum(nullptr), 0);
    EXPECT_EQ(ALIBCErrGet(), ARDV_ERR_INVALID_ARGUMENT);
    EXPECT_EQ(ARDVFWServiceFind(nullptr, "s"), nullptr);
    MakeServices("a.json", R"([{"service":"s"}])");
    EXPECT_EQ(Enum().Find(nullptr), nullptr);
    ARDVFWServiceFree(nullptr);
}

TEST_F(FirewallServices, AreParsedOnceForManyCalls) {
    MakeServices("a.json", R"([{"service":"s"}])");
    MakeServices("b.json", R"([{"service":"t"}])");
    MakeServices("damaged.json", "[");
    WaitForTheFileClock();
    const FileOpens opens;
    for (int call = 0; call < 23; ++call) {
        EXPECT_EQ(Enum().count, 2);
    }
    for (const char* name : {"/a.json", "/b.json", "/damaged.json"}) {
        EXPECT_EQ(opens.CountOf(kFolder + name), 1U) << name;
    }
}

TEST_F(FirewallServices, AreReadAgainAfterEachKindOfChange) {
    MakeServices("a.json", R"([{"service":"s"}])");
    const auto names = [] {
        WaitForTheFileClock();
        std::string found;
        for (int call = 0; call < 2; ++call) {
            const Services services = Enum();
            for (const char* name : {"s", "t", "u"}) {
                found += services.Find(name) == nullptr ? "" : name;
            }
        }
        return found;
    };
    EXPECT_EQ(names(), "ss");
    MakeServices("b.json", R"([{"service":"t"}])");
    EXPECT_EQ(names(), "stst") << "a file came";
    MakeServices("b.json", R"([{"service":"u"}])");
    EXPECT_EQ(names(), "susu") << "a file was rewritten with the same size";
    ASSERT_EQ(unlink((kFolder + "/a.json").c_str()), 0);
    EXPECT_EQ(names(), "uu") << "a file went";
    fs::rename(kFolder + "/b.json", kFolder + "/b.json.off");
    EXPECT_EQ(names(), "") << "a file was renamed";
}

TEST_F(FirewallServices, SeeManyChangesWithinOneTickOfTheFileClock) {
    for (int round = 1000; round < 3000; ++round) {
        const std::string name = std::to_string(round);
        MakeServices("a.json", "[{\"service\":\"" + name + "\"}]");
        ASSERT_NE(Enum().Find(name.c_str()), nullptr);
    }
}

TEST_F(FirewallServices, AreReadOutsideWithoutLeavingDescriptors) {
    MakeServices("a.json", "[");
    const std::size_t before = OpenDescriptors();
    Enum();
    EXPECT_EQ(OpenDescriptors(), before);
}

TEST_F(FirewallServices, OfATypicalDeviceAreInThePackage) {
    fs::copy(ARDV_SOURCE_DIR "/packaging/etc/ardv/services.d/ardvrelayd.json", kFolder);
    const Services services = Enum();
    struct Expected {
        const char* name;
        const char* port;
    };
    const std::vector<Expected> expected = {
        {"dms", "5000"}, {"dms_https", "5001"}, {"http", "80"},          {"https", "443"},          {"telnet", "23"},
        {"ssh", "22"},   {"drivara", "6690"},   {"webdav_http", "5005"}, {"webdavs_https", "5006"}, {"filara", "6690"}};
    EXPECT_EQ(services.count, static_cast<int>(expected.size()));
    for (const Expected& row : expected) {
        const ARDV_FW_SERVICE* service = services.Find(row.name);
        ASSERT_NE(service, nullptr) << row.name;
        ASSERT_EQ(service->port_count, 1) << row.name;
        EXPECT_STREQ(service->ports[0], row.port) << row.name;
        EXPECT_TRUE(service->section != nullptr && service->title != nullptr) << row.name;
    }
}

}  // namespace ARDV::Platform::Test
