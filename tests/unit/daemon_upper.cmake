# SPDX-License-Identifier: Apache-2.0
# ardv_daemon_upper_tests: what the daemon does and says, against servers in the test's own process, and its command line.
ardv_add_test(ardv_daemon_upper_tests
  unit/ardvrelayd/alias_keeper_test.cpp
  unit/ardvrelayd/back_off_test.cpp
  unit/ardvrelayd/check_config_test.cpp
  unit/ardvrelayd/conf_page_test.cpp
  unit/ardvrelayd/control_global_test.cpp
  unit/ardvrelayd/control_messages_test.cpp
  unit/ardvrelayd/control_session_test.cpp
  unit/ardvrelayd/control_wait_test.cpp
  unit/ardvrelayd/device_test.cpp
  unit/ardvrelayd/openvpn_process_test.cpp
  unit/ardvrelayd/options_test.cpp
  unit/ardvrelayd/policy_test.cpp
  unit/ardvrelayd/recent_errors_test.cpp
  unit/ardvrelayd/report_test.cpp
  unit/ardvrelayd/status_file_test.cpp
  unit/ardvrelayd/tunnel_keeper_test.cpp
  unit/ardvrelayd/tunnel_leftovers_test.cpp
  unit/ardvrelayd/tunnel_order_test.cpp
  support/control_script.cpp
  support/http_server.cpp
  support/shifted_clock.cpp
  support/stand_in_tunnel.cpp
  $<TARGET_OBJECTS:ardv_daemon_objects>)
target_include_directories(ardv_daemon_upper_tests PRIVATE
  ${PROJECT_SOURCE_DIR}/ardvrelayd $<TARGET_PROPERTY:ardvrelayd_objects,INCLUDE_DIRECTORIES>)
target_compile_definitions(ardv_daemon_upper_tests PRIVATE
  ARDV_DAEMON="$<TARGET_FILE:ardvrelayd_program>"
  ARDV_MAKE_CERTIFICATES="${PROJECT_SOURCE_DIR}/sandbox/make-certificates"
  ARDV_SOURCE_DIR="${PROJECT_SOURCE_DIR}")
target_link_libraries(ardv_daemon_upper_tests PRIVATE
  ardv_platform_headers PkgConfig::httplib PkgConfig::jsoncpp PkgConfig::libcurl PkgConfig::libdaemon PkgConfig::libevent_core
  OpenSSL::SSL OpenSSL::Crypto Threads::Threads ${CMAKE_DL_LIBS})
add_dependencies(ardv_daemon_upper_tests ardvrelayd_program)
