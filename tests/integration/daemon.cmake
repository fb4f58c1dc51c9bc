# SPDX-License-Identifier: Apache-2.0
# ardv_daemon_integration_tests: the daemon's program against the sandbox's servers, whatever these do.
ardv_add_test(ardv_daemon_integration_tests
  integration/daemon_alias_test.cpp
  integration/daemon_clock_test.cpp
  integration/daemon_endurance_test.cpp
  integration/daemon_network_test.cpp
  integration/daemon_outage_test.cpp
  integration/daemon_session_test.cpp
  integration/daemon_stop_test.cpp
  integration/daemon_start_test.cpp
  integration/daemon_tunnel_test.cpp
  support/control_server_process.cpp
  support/daemon_process.cpp
  support/server_process.cpp
  support/stand_in_tunnel.cpp
  support/started_program.cpp
  support/test_certificates.cpp)
add_library(ardv_early_signal MODULE support/early_signal.c)
set_target_properties(ardv_early_signal PROPERTIES C_VISIBILITY_PRESET default)
target_link_libraries(ardv_early_signal PRIVATE ${CMAKE_DL_LIBS})
add_library(ardv_jumping_clock MODULE support/jumping_clock.cpp support/set_clock.cpp)
target_include_directories(ardv_jumping_clock PRIVATE ${CMAKE_CURRENT_SOURCE_DIR})
target_compile_features(ardv_jumping_clock PRIVATE cxx_std_20)
target_compile_definitions(ardv_daemon_integration_tests PRIVATE
  ARDV_ALIAS_SERVER="$<TARGET_FILE:ardv_sandbox_alias_server>"
  ARDV_CONTROL_SERVER="$<TARGET_FILE:ardv_sandbox_control_server>"
  ARDV_DAEMON="$<TARGET_FILE:ardvrelayd_program>"
  ARDV_JUMPING_CLOCK="$<TARGET_FILE:ardv_jumping_clock>"
  ARDV_EARLY_SIGNAL="$<TARGET_FILE:ardv_early_signal>"
  ARDV_MAKE_CERTIFICATES="${PROJECT_SOURCE_DIR}/sandbox/make-certificates")
target_link_libraries(ardv_daemon_integration_tests PRIVATE PkgConfig::httplib PkgConfig::jsoncpp OpenSSL::SSL)
add_dependencies(ardv_daemon_integration_tests ardv_early_signal ardv_sandbox_alias_server ardv_sandbox_control_server ardvrelayd_program
  ardv_jumping_clock)
