# SPDX-License-Identifier: Apache-2.0
# Each header of the platform on its own, as C where it's for C, and by both standards of C++.
file(GLOB_RECURSE platform_headers CONFIGURE_DEPENDS RELATIVE ${PROJECT_SOURCE_DIR}/platform/include ${PROJECT_SOURCE_DIR}/platform/include/*.h)
set(platform_headers_c)
set(platform_headers_cxx)
foreach(header IN LISTS platform_headers)
  string(MAKE_C_IDENTIFIER ${header} name)
  foreach(language c cxx)
    if(language STREQUAL "cxx" OR header MATCHES "^ardv/")
      file(CONFIGURE OUTPUT ${CMAKE_CURRENT_BINARY_DIR}/headers/${name}.${language}
           CONTENT "#include <${header}>\n#include <${header}>  // a second time does no harm\ntypedef int NeverEmpty;\n" @ONLY)
      list(APPEND platform_headers_${language} ${CMAKE_CURRENT_BINARY_DIR}/headers/${name}.${language})
    endif()
  endforeach()
endforeach()
add_library(ardv_platform_headers_c OBJECT ${platform_headers_c})
set_target_properties(ardv_platform_headers_c PROPERTIES C_STANDARD 11 C_EXTENSIONS OFF)
foreach(standard 17 20)
  add_library(ardv_platform_headers_cxx${standard} OBJECT ${platform_headers_cxx})
  set_target_properties(ardv_platform_headers_cxx${standard} PROPERTIES CXX_STANDARD ${standard} CXX_EXTENSIONS OFF)
  target_compile_options(ardv_platform_headers_cxx${standard} PRIVATE -Wnon-virtual-dtor)
endforeach()
foreach(target ardv_platform_headers_c ardv_platform_headers_cxx17 ardv_platform_headers_cxx20)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Werror)
  target_link_libraries(${target} PRIVATE ardv_platform_headers PkgConfig::jsoncpp)
endforeach()

# ardv_platform_tests: what the headers of platform/include/ardv promise of every platform, against the one that is linked.
set(platform_sources
  unit/platform/error_test.cpp
  unit/platform/key_value_file_test.cpp
  unit/platform/key_value_replace_test.cpp
  unit/platform/key_value_text_test.cpp
  unit/platform/platform_headers.c
  unit/platform/platform_headers_test.cpp
  unit/platform/program_test.cpp
  unit/platform/user_agent_test.cpp)
# What generic Linux alone promises: its identity file and choice of an interface, the names of its sources, its version.
if(ARDV_PLATFORM STREQUAL "linux")
  list(APPEND platform_sources
    unit/platform/cloud_identity_test.cpp
    unit/platform/device_settings_test.cpp
    unit/platform/error_place_test.cpp
    unit/platform/firewall_service_test.cpp
    unit/platform/inetd_test.cpp
    unit/platform/interface_kind_test.cpp
    unit/platform/interface_table_test.cpp
    unit/platform/interface_type_test.cpp
    unit/platform/link_owner_test.cpp
    ${PROJECT_SOURCE_DIR}/platform/linux/interface_type.cpp
    unit/platform/netlink_request_test.cpp
    unit/platform/network_address_test.cpp
    unit/platform/pppoe_test.cpp
    unit/platform/settings_cache_test.cpp
    unit/platform/user_agent_version_test.cpp
    support/file_opens.cpp
    unit/platform/web_settings_test.cpp
    unit/platform/wired_interface_test.cpp)
endif()
ardv_add_test(ardv_platform_tests ${platform_sources})
target_compile_definitions(ardv_platform_tests PRIVATE
  ARDV_SOURCE_DIR="${PROJECT_SOURCE_DIR}" ARDV_VERSION="${PROJECT_VERSION}")
target_link_libraries(ardv_platform_tests PRIVATE
  ardvplatform ardv_key_value_text ardv_platform_headers_c ardv_platform_headers_cxx17 ardv_platform_headers_cxx20)

# Parts of the generic-Linux platform that the library keeps to itself; they are compiled in.
if(ARDV_PLATFORM STREQUAL "linux")
  set(platform_parts error file nginx_server port_number process web_settings)
  list(TRANSFORM platform_parts REPLACE "(.+)" "${PROJECT_SOURCE_DIR}/platform/linux/\\1.cpp")
  ardv_add_test(ardv_platform_parts_tests
    unit/platform/nginx_configuration_test.cpp
    unit/platform/process_test.cpp
    ${platform_parts})
  target_link_libraries(ardv_platform_parts_tests PRIVATE ardvplatform)
endif()

# How a build chooses its platform. Each test configures the project in a folder of its own.
function(ardv_add_platform_choice_test name)
  add_test(NAME platform_choice.${name}
           COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/unit/platform/platform_choice ${PROJECT_SOURCE_DIR} ${ARGN})
  set_tests_properties(platform_choice.${name} PROPERTIES
    ENVIRONMENT "CC=${CMAKE_C_COMPILER};CXX=${CMAKE_CXX_COMPILER}" TIMEOUT 300)
endfunction()
ardv_add_platform_choice_test(RefusesAnUnknownPlatform refuses "must be \"linux\" or \"device\"" -DARDV_PLATFORM=toaster)
ardv_add_platform_choice_test(RefusesADeviceWithoutLibraries refuses "needs ARDV_DEVICE_LIBRARIES" -DARDV_PLATFORM=device)
if(ARDV_PLATFORM STREQUAL "linux")
  ardv_add_platform_choice_test(LinksADevicesLibraryInsteadOfItsOwn links $<TARGET_FILE:ardvplatform>)
endif()
