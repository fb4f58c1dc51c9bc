# SPDX-License-Identifier: Apache-2.0
# ardv_unit_tests: the ground floor and the configuration.

# Each public header on its own, by the standard that callers may use and by the one the library is written in.
set(headers_sources)
foreach(header IN LISTS ARDVRELAYD_PUBLIC_HEADERS)
  string(MAKE_C_IDENTIFIER ${header} name)
  file(CONFIGURE OUTPUT ${CMAKE_CURRENT_BINARY_DIR}/headers/${name}.cpp
       CONTENT "#include <${header}>\n#include <${header}>  // a second time does no harm\n" @ONLY)
  list(APPEND headers_sources ${CMAKE_CURRENT_BINARY_DIR}/headers/${name}.cpp)
endforeach()
foreach(standard 17 20)
  add_library(ardv_headers_cxx${standard} OBJECT ${headers_sources})
  set_target_properties(ardv_headers_cxx${standard} PROPERTIES CXX_STANDARD ${standard})
  target_compile_options(ardv_headers_cxx${standard} PRIVATE -Wall -Wextra -Wpedantic -Wnon-virtual-dtor -Werror)
  target_include_directories(ardv_headers_cxx${standard} PRIVATE ${PROJECT_SOURCE_DIR})
  target_link_libraries(ardv_headers_cxx${standard} PRIVATE PkgConfig::jsoncpp PkgConfig::libcurl)
endforeach()

ardv_add_test(ardv_unit_tests
  unit/account_conf_test.cpp
  unit/alias_conf_test.cpp
  unit/alias_status_test.cpp
  unit/auth_conf_test.cpp
  unit/config_base_test.cpp
  unit/cutil_test.cpp
  unit/files_test.cpp
  unit/headers_test.cpp
  unit/host_name_test.cpp
  unit/identity_test.cpp
  unit/json_store_test.cpp
  unit/json_text_test.cpp
  unit/log_file_test.cpp
  unit/log_test.cpp
  unit/network_conf_test.cpp
  unit/network_read_test.cpp
  unit/portal_check_test.cpp
  unit/relayd_conf_file_test.cpp
  unit/relayd_conf_reload_test.cpp
  unit/relayd_conf_service_test.cpp
  unit/relayd_conf_test.cpp
  unit/server_conf_test.cpp
  unit/service_conf_test.cpp
  unit/service_external_port_test.cpp
  unit/service_read_test.cpp
  unit/shared_folder_test.cpp
  unit/support_service_test.cpp
  unit/switch_conf_test.cpp
  unit/vocabulary_test.cpp
  unit/web_server_test.cpp
  support/memory_faults.cpp
  support/network_faults.cpp
  support/platform_faults.cpp
  support/random_json.cpp
  support/service_faults.cpp
  support/system_log.cpp
  support/web_server_faults.cpp)
list(JOIN ARDVRELAYD_PUBLIC_HEADERS " " headers_list)
target_compile_definitions(ardv_unit_tests PRIVATE
  ARDV_SOURCE_DIR="${PROJECT_SOURCE_DIR}" ARDVRELAYD_PUBLIC_HEADERS="${headers_list}")
# The functions that the faults interpose must not be inlined by the library's headers.
set_source_files_properties(support/platform_faults.cpp PROPERTIES COMPILE_OPTIONS -U_FORTIFY_SOURCE)
target_include_directories(ardv_unit_tests PRIVATE $<TARGET_PROPERTY:ardvrelayd_objects,INCLUDE_DIRECTORIES>)
target_link_libraries(ardv_unit_tests PRIVATE
  ardv_headers_cxx17 ardv_headers_cxx20 PkgConfig::libdaemon OpenSSL::Crypto ${CMAKE_DL_LIBS})
