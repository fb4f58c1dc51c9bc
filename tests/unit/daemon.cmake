# SPDX-License-Identifier: Apache-2.0
# ardv_daemon_tests: the daemon's process, its status, sets of locks, and the log's switch for programs in C.
add_executable(ardv_log_switch unit/log_switch.c)
set_target_properties(ardv_log_switch PROPERTIES C_STANDARD 11 C_EXTENSIONS OFF)
target_link_libraries(ardv_log_switch PRIVATE ardv_compile ${CMAKE_DL_LIBS})
target_include_directories(ardv_log_switch PRIVATE ${PROJECT_SOURCE_DIR})

ardv_add_test(ardv_daemon_tests
  unit/daemon_control_test.cpp
  unit/daemon_report_test.cpp
  unit/daemon_start_test.cpp
  unit/daemon_status_test.cpp
  unit/file_lock_test.cpp
  unit/log_switch_test.cpp
  support/captured_output.cpp
  support/file_opens.cpp
  support/memory_faults.cpp
  support/own_processes_main.cpp
  support/retval_wait.cpp
  support/signalled_process.cpp
  support/system_log.cpp)
target_compile_definitions(ardv_daemon_tests PRIVATE
  ARDV_SOURCE_DIR="${PROJECT_SOURCE_DIR}" ARDV_BINARY_DIR="${PROJECT_BINARY_DIR}"
  ARDV_LOG_SWITCH="$<TARGET_FILE:ardv_log_switch>" ARDV_LIBRARY="$<TARGET_FILE:ardvrelayd>")
# The functions that the faults interpose must not be inlined by the library's headers.
set_source_files_properties(support/file_opens.cpp PROPERTIES COMPILE_OPTIONS -U_FORTIFY_SOURCE)
target_link_libraries(ardv_daemon_tests PRIVATE ardv_private_root PkgConfig::libdaemon ${CMAKE_DL_LIBS})
add_dependencies(ardv_daemon_tests ardv_log_switch ardvrelayd)
