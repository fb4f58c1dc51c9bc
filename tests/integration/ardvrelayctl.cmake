# SPDX-License-Identifier: Apache-2.0
# ardv_ctl_tests: the management tool on a device without a network.
ardv_add_test(ardv_ctl_tests
  integration/ardvrelayctl_check_test.cpp
  integration/ardvrelayctl_config_test.cpp
  integration/ardvrelayctl_control_test.cpp
  integration/ardvrelayctl_doctor_test.cpp
  integration/ardvrelayctl_doctor_tunnel_test.cpp
  integration/ardvrelayctl_identity_test.cpp
  integration/ardvrelayctl_lock_test.cpp
  integration/ardvrelayctl_report_test.cpp
  integration/ardvrelayctl_rights_test.cpp
  integration/ardvrelayctl_service_test.cpp
  integration/ardvrelayctl_status_test.cpp
  integration/ardvrelayctl_tunnel_rules_test.cpp
  integration/ardvrelayctl_tunnel_test.cpp
  integration/ardvrelayctl_wait_test.cpp
  integration/ardvrelayctl_walk_test.cpp
  integration/ardvrelayctl_web_test.cpp
  support/made_up_daemon.cpp
  support/nginx_server.cpp
  support/started_program.cpp
  support/systemd_box.cpp
  support/test_certificates.cpp)
add_library(ardv_past_clock MODULE support/past_clock.c)
set_target_properties(ardv_past_clock PROPERTIES C_VISIBILITY_PRESET default)
target_compile_definitions(ardv_ctl_tests PRIVATE
  ARDV_OVPNC="${PROJECT_SOURCE_DIR}/platform/programs/ovpnc.sh"
  ARDV_PAST_CLOCK="$<TARGET_FILE:ardv_past_clock>"
  ARDV_MAKE_CERTIFICATES="${PROJECT_SOURCE_DIR}/sandbox/make-certificates"
  ARDV_RELAYCTL="$<TARGET_FILE:ardvrelayctl>"
  ARDV_PACKAGED_SERVER_BLOCK="${PROJECT_SOURCE_DIR}/packaging/etc/nginx/conf.d/ardv.conf")
target_link_libraries(ardv_ctl_tests PRIVATE PkgConfig::httplib PkgConfig::jsoncpp PkgConfig::libsystemd Threads::Threads ardvplatform)
add_dependencies(ardv_ctl_tests ardvrelayctl ardv_past_clock)
