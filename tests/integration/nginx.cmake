# SPDX-License-Identifier: Apache-2.0
# ardv_nginx_tests: the web server hooks and their generic-Linux platform, with a real nginx.
ardv_add_test(ardv_nginx_tests
  integration/nginx_registry_recovery_test.cpp
  integration/nginx_registry_test.cpp
  integration/web_server_test.cpp
  support/folder_faults.cpp
  support/killed_at_call.cpp
  support/nginx_server.cpp)
target_compile_definitions(ardv_nginx_tests PRIVATE
  ARDV_PACKAGED_SERVER_BLOCK="${PROJECT_SOURCE_DIR}/packaging/etc/nginx/conf.d/ardv.conf")
target_link_libraries(ardv_nginx_tests PRIVATE PkgConfig::httplib PkgConfig::jsoncpp Threads::Threads)
