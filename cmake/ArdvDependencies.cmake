# SPDX-License-Identifier: Apache-2.0
# What the system links, each for a reason:
#   libcurl    every HTTP(S) exchange
#   jsoncpp    the JSON value of every interface, its reader and writers
#   libcrypto  digests
#   libdaemon  the daemon's log verbosity and process control
# and its generic-Linux platform alone:
#   libsystemd    units, over the system bus
#   libminiupnpc  what a router says of itself and of its port mappings
find_package(PkgConfig REQUIRED)
find_package(OpenSSL 3.0 REQUIRED COMPONENTS Crypto SSL)
find_package(Threads REQUIRED)
pkg_check_modules(libcurl REQUIRED IMPORTED_TARGET libcurl>=7.88)
pkg_check_modules(jsoncpp REQUIRED IMPORTED_TARGET jsoncpp>=1.9.5)
pkg_check_modules(libdaemon REQUIRED IMPORTED_TARGET libdaemon>=0.14)
if(ARDV_PLATFORM STREQUAL "linux")
  pkg_check_modules(libsystemd REQUIRED IMPORTED_TARGET libsystemd>=252)
  pkg_check_modules(miniupnpc REQUIRED IMPORTED_TARGET miniupnpc>=2.2)
endif()
