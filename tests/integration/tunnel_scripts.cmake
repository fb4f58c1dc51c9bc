# SPDX-License-Identifier: Apache-2.0
# ardv_tunnel_scripts_tests: the scripts that OpenVPN and the library call for the tunnel, with a real packet filter.
if(ARDV_PLATFORM STREQUAL "linux")
  ardv_add_test(ardv_tunnel_scripts_tests
    integration/tunnel_filter_test.cpp
    integration/tunnel_scripts_test.cpp)
  target_compile_definitions(ardv_tunnel_scripts_tests PRIVATE
    ARDV_UP_SCRIPT="${PROJECT_SOURCE_DIR}/ardvrelayd/scripts/up.sh"
    ARDV_DOWN_SCRIPT="${PROJECT_SOURCE_DIR}/ardvrelayd/scripts/down.sh"
    ARDV_OVPNC_SCRIPT="${PROJECT_SOURCE_DIR}/platform/programs/ovpnc.sh")
endif()
