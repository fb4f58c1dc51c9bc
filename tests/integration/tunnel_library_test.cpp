// SPDX-License-Identifier: Apache-2.0
// The library's tunnel with a real OpenVPN at both ends and a real packet filter.
#include "integration/tunnel_library_fixture.h"

namespace ardv::test {
namespace {

class TunnelProtocol : public LibraryTunnelTest, public testing::WithParamInterface<Protocol> {};

TEST_P(TunnelProtocol, CarriesThePage) {
    const Protocol& protocol = GetParam();
    BringUp(Candidates({protocol}));
    EXPECT_EQ(Fetch("relay", protocol.DeviceInner4(), kPage), DeviceServices::Page());
    EXPECT_EQ(Fetch("relay", protocol.DeviceInner6(), kPage), DeviceServices::Page());
    EXPECT_EQ(Fetch("relay", protocol.DeviceInner4(), kPage, "1m", 10), DeviceServices::Large());
    EXPECT_EQ(Fetch("relay", protocol.DeviceInner6(), kPage, "1m", 10), DeviceServices::Large());
    EXPECT_EQ(Fetch("relay", protocol.DeviceInner4(), kPhotos, "index.html", 1), "");
    EXPECT_EQ(tunnel.GetVpnTunnelPeerIp(), protocol.RelayInner4());
    EXPECT_THAT(PasswordFiles(), testing::IsEmpty());
    EndChild();
    ExpectNoTrace();
}

INSTANTIATE_TEST_SUITE_P(Each, TunnelProtocol, testing::ValuesIn(kProtocols), ProtocolName);

}  // namespace
}  // namespace ardv::test
