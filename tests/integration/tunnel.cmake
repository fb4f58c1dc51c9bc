# SPDX-License-Identifier: Apache-2.0
# ardv_tunnel_integration_tests: the relay tunnel with a real OpenVPN, a real packet filter and a real web server, in network namespaces.
ardv_add_test(ardv_tunnel_integration_tests
  integration/tunnel_daemon_test.cpp
  integration/tunnel_end_test.cpp
  integration/tunnel_library_test.cpp
  integration/tunnel_prober_test.cpp
  integration/tunnel_rules_test.cpp
  support/control_server_process.cpp
  support/daemon_process.cpp
  support/network_namespace.cpp
  support/port_prober.cpp
  support/probe_packet.cpp
  support/server_process.cpp
  support/test_certificates.cpp
  support/tunnel_device.cpp
  support/tunnel_network.cpp
  support/tunnel_processes.cpp)
target_compile_definitions(ardv_tunnel_integration_tests PRIVATE
  ARDV_CONTROL_SERVER="$<TARGET_FILE:ardv_sandbox_control_server>"
  ARDV_DAEMON="$<TARGET_FILE:ardvrelayd_program>"
  ARDV_MAKE_CERTIFICATES="${PROJECT_SOURCE_DIR}/sandbox/make-certificates"
  ARDV_MAKE_NETWORK="${PROJECT_SOURCE_DIR}/sandbox/make-network"
  ARDV_RELAY_SERVER="${PROJECT_SOURCE_DIR}/sandbox/relay-server"
  ARDV_RELAYCTL="$<TARGET_FILE:ardvrelayctl>"
  ARDV_SOURCE="${PROJECT_SOURCE_DIR}")
target_link_libraries(ardv_tunnel_integration_tests PRIVATE PkgConfig::httplib PkgConfig::jsoncpp OpenSSL::SSL Threads::Threads)
add_dependencies(ardv_tunnel_integration_tests ardv_sandbox_control_server ardvrelayctl ardvrelayd_program)
