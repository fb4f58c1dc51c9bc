# SPDX-License-Identifier: Apache-2.0
# ardv_edit_tests: small settings files, permissions, edits of the configuration, and how safely they are saved.
ardv_add_test(ardv_edit_tests
  unit/enable_ardvrelayd_test.cpp
  unit/failover_test.cpp
  unit/misc_conf_test.cpp
  unit/permission_file_test.cpp
  unit/relayd_conf_edit_test.cpp
  unit/relayd_conf_services_test.cpp
  unit/safe_saving_test.cpp
  unit/service_permission_test.cpp
  support/curl_faults.cpp
  support/http_server.cpp
  support/killed_at_call.cpp
  support/platform_faults.cpp
  support/system_log.cpp
  support/systemd_calls.cpp)
target_compile_definitions(ardv_edit_tests PRIVATE
  ARDV_MAKE_CERTIFICATES="${PROJECT_SOURCE_DIR}/sandbox/make-certificates")
target_include_directories(ardv_edit_tests PRIVATE $<TARGET_PROPERTY:ardvrelayd_objects,INCLUDE_DIRECTORIES>)
target_link_libraries(ardv_edit_tests PRIVATE
  ardv_platform_headers PkgConfig::httplib PkgConfig::jsoncpp PkgConfig::libcurl OpenSSL::SSL OpenSSL::Crypto Threads::Threads
  ${CMAKE_DL_LIBS})
