# SPDX-License-Identifier: Apache-2.0
# ardv_platform_integration_tests: the generic-Linux platform with a real systemd, and with real routers.
if(ARDV_PLATFORM STREQUAL "linux")
  ardv_add_test(ardv_platform_integration_tests
    integration/router_port_hostile_test.cpp
    integration/router_port_test.cpp
    integration/systemd_test.cpp
    support/fake_router.cpp
    support/router_network.cpp
    support/shifted_clock.cpp
    support/systemd_box.cpp)
  target_link_libraries(ardv_platform_integration_tests PRIVATE ardvplatform PkgConfig::httplib PkgConfig::libsystemd PkgConfig::miniupnpc)
endif()
