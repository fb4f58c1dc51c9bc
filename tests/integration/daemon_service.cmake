# SPDX-License-Identifier: Apache-2.0
# ardv_daemon_service_tests: the daemon and its tunnel as a service, under a real systemd and with the unit that is installed.
if(ARDV_PLATFORM STREQUAL "linux" AND ARDV_BUILD_SANDBOX)
  ardv_add_test(ardv_daemon_service_tests
    integration/daemon_service_test.cpp
    integration/tunnel_service_test.cpp
    support/control_server_process.cpp
    support/server_process.cpp
    support/systemd_box.cpp
    support/test_certificates.cpp)
  target_compile_definitions(ardv_daemon_service_tests PRIVATE
    ARDV_CONTROL_SERVER="$<TARGET_FILE:ardv_sandbox_control_server>"
    ARDV_MAKE_CERTIFICATES="${PROJECT_SOURCE_DIR}/sandbox/make-certificates"
    ARDV_DAEMON="$<TARGET_FILE:ardvrelayd_program>"
    ARDV_DAEMON_UNIT="${PROJECT_BINARY_DIR}/ardvrelayd.service"
    ARDV_DAEMON_DROP_IN="${PROJECT_BINARY_DIR}/foreground.conf"
    ARDV_DAEMON_PLACE="${CMAKE_INSTALL_FULL_SBINDIR}/ardvrelayd"
    ARDV_UP_SCRIPT="${PROJECT_SOURCE_DIR}/ardvrelayd/scripts/up.sh"
    ARDV_DOWN_SCRIPT="${PROJECT_SOURCE_DIR}/ardvrelayd/scripts/down.sh"
    ARDV_OVPNC_SCRIPT="${PROJECT_SOURCE_DIR}/platform/programs/ovpnc.sh"
    ARDV_LIBRARY="$<TARGET_FILE:ardvrelayd>" ARDV_LIBRARY_NAME="$<TARGET_SONAME_FILE_NAME:ardvrelayd>"
    ARDV_PLATFORM_LIBRARY="$<TARGET_FILE:ardvplatform>" ARDV_PLATFORM_LIBRARY_NAME="$<TARGET_SONAME_FILE_NAME:ardvplatform>")
  target_link_libraries(ardv_daemon_service_tests PRIVATE PkgConfig::httplib PkgConfig::jsoncpp PkgConfig::libsystemd OpenSSL::SSL)
  add_dependencies(ardv_daemon_service_tests ardv_sandbox_control_server ardvrelayd_program)
endif()
