# SPDX-License-Identifier: Apache-2.0
ardv_add_test(ardv_platform_tests
  unit/platform/cloud_identity_test.cpp
  unit/platform/error_test.cpp
  unit/platform/key_value_file_test.cpp
  unit/platform/key_value_replace_test.cpp
  unit/platform/key_value_text_test.cpp
  unit/platform/platform_headers.c
  unit/platform/platform_headers_test.cpp
  unit/platform/user_agent_test.cpp
  unit/platform/wired_interface_test.cpp)
target_link_libraries(ardv_platform_tests PRIVATE ardvplatform ardv_key_value_text OpenSSL::Crypto)
