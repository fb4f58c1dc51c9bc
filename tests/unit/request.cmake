# SPDX-License-Identifier: Apache-2.0
# ardv_request_tests: requests and the alias protocol, against servers in the test's own process.
ardv_add_test(ardv_request_tests
  unit/alias_form_test.cpp
  unit/alias_reply_test.cpp
  unit/alias_request_send_test.cpp
  unit/alias_request_test.cpp
  unit/form_test.cpp
  unit/request_body_test.cpp
  unit/request_copy_test.cpp
  unit/request_error_test.cpp
  unit/request_job_test.cpp
  unit/request_setup_test.cpp
  unit/request_share_test.cpp
  unit/request_test.cpp
  unit/request_tls_test.cpp
  support/curl_faults.cpp
  support/event_loop.cpp
  support/http_server.cpp
  support/system_log.cpp)
target_compile_definitions(ardv_request_tests PRIVATE
  ARDV_MAKE_CERTIFICATES="${PROJECT_SOURCE_DIR}/sandbox/make-certificates")
target_link_libraries(ardv_request_tests PRIVATE
  ardv_platform_headers PkgConfig::httplib PkgConfig::libevent OpenSSL::SSL OpenSSL::Crypto Threads::Threads
  ${CMAKE_DL_LIBS})
