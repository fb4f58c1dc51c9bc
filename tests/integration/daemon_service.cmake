# SPDX-License-Identifier: Apache-2.0
# ardv_daemon_service_tests: the daemon as a service, under a real systemd and with the unit that is installed.
if(ARDV_PLATFORM STREQUAL "linux")
  ardv_add_test(ardv_daemon_service_tests
    integration/daemon_service_test.cpp
    support/systemd_box.cpp)
  target_compile_definitions(ardv_daemon_service_tests PRIVATE
    ARDV_DAEMON="$<TARGET_FILE:ardvrelayd_program>"
    ARDV_DAEMON_UNIT="${PROJECT_BINARY_DIR}/ardvrelayd.service"
    ARDV_DAEMON_DROP_IN="${PROJECT_BINARY_DIR}/foreground.conf"
    ARDV_DAEMON_PLACE="${CMAKE_INSTALL_FULL_SBINDIR}/ardvrelayd"
    ARDV_LIBRARY="$<TARGET_FILE:ardvrelayd>" ARDV_LIBRARY_NAME="$<TARGET_SONAME_FILE_NAME:ardvrelayd>"
    ARDV_PLATFORM_LIBRARY="$<TARGET_FILE:ardvplatform>" ARDV_PLATFORM_LIBRARY_NAME="$<TARGET_SONAME_FILE_NAME:ardvplatform>")
  target_link_libraries(ardv_daemon_service_tests PRIVATE PkgConfig::jsoncpp PkgConfig::libsystemd)
  add_dependencies(ardv_daemon_service_tests ardvrelayd_program)
endif()
