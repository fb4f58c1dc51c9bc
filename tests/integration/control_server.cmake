# SPDX-License-Identifier: Apache-2.0
# ardv_control_server_tests: the sandbox's control server, and what is said on the wire against the schemas.
ardv_add_test(ardv_control_server_tests
  integration/control_schema_test.cpp
  integration/control_server_fault_test.cpp
  integration/control_server_scenario_test.cpp
  integration/control_server_test.cpp
  integration/control_server_tunnel_test.cpp
  integration/control_server_wait_test.cpp
  support/control_schema.cpp
  support/control_server_process.cpp
  support/daemon_process.cpp
  support/raw_exchange.cpp
  support/server_process.cpp
  support/test_certificates.cpp)
target_compile_definitions(ardv_control_server_tests PRIVATE
  ARDV_CONTROL_SERVER="$<TARGET_FILE:ardv_sandbox_control_server>"
  ARDV_DAEMON="$<TARGET_FILE:ardvrelayd_program>"
  ARDV_MAKE_CERTIFICATES="${PROJECT_SOURCE_DIR}/sandbox/make-certificates"
  ARDV_SCHEMA_CHECK="${CMAKE_CURRENT_SOURCE_DIR}/support/schema_check"
  ARDV_SCHEMA_FOLDER="${PROJECT_SOURCE_DIR}/docs/control-protocol")
target_link_libraries(ardv_control_server_tests PRIVATE PkgConfig::httplib PkgConfig::jsoncpp OpenSSL::SSL)
add_dependencies(ardv_control_server_tests ardv_sandbox_control_server ardvrelayd_program)
