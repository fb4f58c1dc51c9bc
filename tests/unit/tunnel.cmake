# SPDX-License-Identifier: Apache-2.0
# ardv_tunnel_tests: the relay tunnel, with recording programs in the place of OpenVPN and of the packet filter's.
add_executable(ardv_recording_program support/recording_program.cpp)
target_link_libraries(ardv_recording_program PRIVATE ardv_compile)

ardv_add_test(ardv_tunnel_tests
  unit/tunnel_candidate_test.cpp
  unit/tunnel_conf_test.cpp
  unit/tunnel_filter_test.cpp
  unit/tunnel_pass_file_test.cpp
  unit/tunnel_start_test.cpp
  unit/tunnel_status_test.cpp
  support/child_faults.cpp
  support/own_processes_main.cpp
  support/random_json.cpp
  support/recorded_programs.cpp)
target_compile_definitions(ardv_tunnel_tests PRIVATE
  ARDV_SOURCE_DIR="${PROJECT_SOURCE_DIR}" ARDV_BINARY_DIR="${PROJECT_BINARY_DIR}"
  ARDV_RECORDING_PROGRAM="$<TARGET_FILE:ardv_recording_program>")
# The functions that the faults interpose must not be inlined by the library's headers.
set_source_files_properties(support/child_faults.cpp PROPERTIES COMPILE_OPTIONS -U_FORTIFY_SOURCE)
target_link_libraries(ardv_tunnel_tests PRIVATE ardv_private_root ${CMAKE_DL_LIBS})
add_dependencies(ardv_tunnel_tests ardv_recording_program)
