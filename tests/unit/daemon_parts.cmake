# SPDX-License-Identifier: Apache-2.0
# ardv_daemon_parts_tests: the small parts that the daemon is made of.
ardv_add_test(ardv_daemon_parts_tests
  unit/ardvrelayd/clock_watch_test.cpp
  unit/ardvrelayd/event_loop_test.cpp
  unit/ardvrelayd/network_table_test.cpp
  unit/ardvrelayd/network_watch_test.cpp
  unit/ardvrelayd/service_manager_test.cpp
  unit/ardvrelayd/signals_test.cpp
  unit/ardvrelayd/transfer_engine_test.cpp
  support/curl_faults.cpp
  support/http_server.cpp
  support/set_clock.cpp
  $<TARGET_OBJECTS:ardv_daemon_objects>)
target_include_directories(ardv_daemon_parts_tests PRIVATE ${PROJECT_SOURCE_DIR}/ardvrelayd)
target_compile_definitions(ardv_daemon_parts_tests PRIVATE
  ARDV_MAKE_CERTIFICATES="${PROJECT_SOURCE_DIR}/sandbox/make-certificates")
target_link_libraries(ardv_daemon_parts_tests PRIVATE
  ardv_platform_headers PkgConfig::httplib PkgConfig::libdaemon PkgConfig::libevent_core OpenSSL::SSL OpenSSL::Crypto
  Threads::Threads ${CMAKE_DL_LIBS})

list(JOIN ARDVRELAYD_PUBLIC_HEADERS " " public_headers)
add_test(NAME ardvrelayd.SeesInstalledHeadersAlone
         COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/unit/ardvrelayd/public_headers_check ${PROJECT_SOURCE_DIR} "${public_headers}" ardvrelayd ardvrelayctl)
