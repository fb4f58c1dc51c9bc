# SPDX-License-Identifier: Apache-2.0
# ardv_platform_tests: what the headers of platform/include/ardv promise of every platform, against the one that is linked.
set(platform_sources
  unit/platform/error_test.cpp
  unit/platform/key_value_file_test.cpp
  unit/platform/key_value_replace_test.cpp
  unit/platform/key_value_text_test.cpp
  unit/platform/platform_headers.c
  unit/platform/platform_headers_test.cpp
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
target_link_libraries(ardv_platform_tests PRIVATE ardvplatform ardv_key_value_text)

# Parts of the generic-Linux platform that the library keeps to itself; they are compiled in.
if(ARDV_PLATFORM STREQUAL "linux")
  set(platform_parts error file nginx_server process web_settings)
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
