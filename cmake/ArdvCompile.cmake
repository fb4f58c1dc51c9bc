# SPDX-License-Identifier: Apache-2.0
# One target that carries the compiler settings of every source of this project.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 11)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_INSTALL_RPATH_USE_LINK_PATH OFF)

set(ARDV_SANITIZE "" CACHE STRING "Sanitizers for everything built here, as in -fsanitize=")
option(ARDV_COVERAGE "Count executed lines" OFF)

add_library(ardv_compile INTERFACE)
add_library(ardvrelayd::compile ALIAS ardv_compile)
target_compile_features(ardv_compile INTERFACE cxx_std_20)
target_compile_options(ardv_compile INTERFACE
  -Wall -Wextra -Wpedantic -Werror -Wconversion -Wsign-conversion -Wshadow -Wformat=2 -Wundef -Wcast-align
  $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor -Woverloaded-virtual -Wold-style-cast -Wextra-semi>
  $<$<CXX_COMPILER_ID:GNU>:-Wlogical-op -Wduplicated-cond -Wduplicated-branches>
  $<$<COMPILE_LANG_AND_ID:CXX,GNU>:-Wuseless-cast -Wsuggest-override>
  -fstack-protector-strong)
target_compile_definitions(ardv_compile INTERFACE _GNU_SOURCE $<$<CONFIG:Release,RelWithDebInfo>:_FORTIFY_SOURCE=2>)
target_link_options(ardv_compile INTERFACE -Wl,--as-needed -Wl,-z,relro -Wl,-z,now)

if(ARDV_SANITIZE)
  target_compile_options(ardv_compile INTERFACE -fsanitize=${ARDV_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(ardv_compile INTERFACE -fsanitize=${ARDV_SANITIZE})
endif()
if(ARDV_COVERAGE)
  target_compile_options(ardv_compile INTERFACE --coverage -fprofile-update=atomic)
  target_link_options(ardv_compile INTERFACE --coverage)
endif()
