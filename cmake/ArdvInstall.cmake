# SPDX-License-Identifier: Apache-2.0
# Installation: both libraries, their public headers below include/ardvrelayd, the tool with manual and completion, examples of the device's files,
# a CMake package and pkg-config files.
if(ARDV_PLATFORM STREQUAL "linux")
  set(ARDV_INSTALLED_TARGETS ardvrelayd ardvplatform ardv_platform_headers)
else()
  set(ARDV_INSTALLED_TARGETS ardvrelayd)
endif()

install(TARGETS ${ARDV_INSTALLED_TARGETS} EXPORT ardvrelayd-targets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(TARGETS ardvrelayctl RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(TARGETS ardvrelayd_program RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR})
install(FILES docs/man/ardvrelayctl.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES docs/man/ardvrelayd.conf.5 DESTINATION ${CMAKE_INSTALL_MANDIR}/man5)
install(FILES docs/man/ardvrelayd.8 DESTINATION ${CMAKE_INSTALL_MANDIR}/man8)

# Below /usr, Debian's zsh looks into share/zsh/vendor-completions instead.
set(ARDV_ZSH_COMPLETION_DIR ${CMAKE_INSTALL_DATADIR}/zsh/site-functions CACHE STRING "Where zsh's completion is installed")
install(FILES packaging/completion/_ardvrelayctl DESTINATION ${ARDV_ZSH_COMPLETION_DIR})
install(FILES packaging/completion/ardvrelayctl.bash
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME ardvrelayctl)
if(ARDV_PLATFORM STREQUAL "linux")  # a device's own system has its services elsewhere
  # Examples of the device's files, to copy and adapt. The system reads /etc, whatever the prefix, and what is there is the device's own.
  install(DIRECTORY packaging/etc/ DESTINATION ${CMAKE_INSTALL_DATADIR}/ardvrelayd/examples)
  # The unit, below the prefix where the service manager looks too, and a drop-in to copy. They name the program by its full path: those for the tests are made here.
  configure_file(packaging/systemd/ardvrelayd.service.in ardvrelayd.service @ONLY)
  configure_file(packaging/systemd/foreground.conf.in foreground.conf @ONLY)
  install(CODE "set(ARDV_SOURCE \"${PROJECT_SOURCE_DIR}\")
    set(ARDV_BINARY \"${PROJECT_BINARY_DIR}\")
    set(ARDV_SBINDIR \"${CMAKE_INSTALL_SBINDIR}\")
    set(ARDV_EXAMPLES \"${CMAKE_INSTALL_DATADIR}/ardvrelayd/examples\")")
  install(SCRIPT cmake/InstallUnit.cmake)
endif()

# The scripts of the tunnel and the relay's authority stand at fixed places, whatever the prefix. What is outside of the prefix is installed only when
# asked for ("cmake --install BUILD --component device"), so that a private installation takes no rights and changes nothing of the machine's.
set(ARDV_RELAY_CA_FILE "" CACHE FILEPATH "Certificates of the authority that the relay servers' certificates are of, to be installed (PEM)")
set(ARDV_DEVICE_DIR /usr/ardv/etc.defaults)
set(ARDV_DEVICE_FILES COMPONENT device EXCLUDE_FROM_ALL)
install(PROGRAMS ardvrelayd/scripts/up.sh ardvrelayd/scripts/down.sh DESTINATION ${ARDV_DEVICE_DIR}/ardvrelayd/scripts ${ARDV_DEVICE_FILES})
install(DIRECTORY DESTINATION ${ARDV_DEVICE_DIR}/ardvrelayd/ca ${ARDV_DEVICE_FILES})
if(ARDV_RELAY_CA_FILE)
  file(STRINGS "${ARDV_RELAY_CA_FILE}" ARDV_RELAY_CA_FOUND REGEX "^-----BEGIN CERTIFICATE-----" LIMIT_COUNT 1)
  if(NOT ARDV_RELAY_CA_FOUND)
    message(FATAL_ERROR "ARDV_RELAY_CA_FILE: ${ARDV_RELAY_CA_FILE} does not exist, or has no PEM certificate")
  endif()
  install(FILES "${ARDV_RELAY_CA_FILE}" DESTINATION ${ARDV_DEVICE_DIR}/ardvrelayd/ca RENAME ca.crt ${ARDV_DEVICE_FILES})
endif()
if(ARDV_PLATFORM STREQUAL "linux")  # on a device it belongs to the VPN client
  install(PROGRAMS platform/programs/ovpnc.sh DESTINATION ${ARDV_DEVICE_DIR}/ardvvpnclient/scripts ${ARDV_DEVICE_FILES})
endif()

foreach(header IN LISTS ARDVRELAYD_PUBLIC_HEADERS)
  cmake_path(GET header PARENT_PATH folder)
  install(FILES ${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/ardvrelayd/${folder})
endforeach()
install(DIRECTORY platform/include/ardv platform/include/ardvw3 DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/ardvrelayd FILES_MATCHING PATTERN "*.h")

install(EXPORT ardvrelayd-targets NAMESPACE ardvrelayd:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/ardvrelayd)
configure_package_config_file(cmake/ardvrelayd-config.cmake.in ardvrelayd-config.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/ardvrelayd)
write_basic_package_version_file(ardvrelayd-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/ardvrelayd-config.cmake ${PROJECT_BINARY_DIR}/ardvrelayd-config-version.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/ardvrelayd)

# Relative, so that an installed copy may stand anywhere.
file(RELATIVE_PATH ARDV_PC_TO_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" ARDV_PC_TO_PREFIX ${ARDV_PC_TO_PREFIX})
if(ARDV_PLATFORM STREQUAL "linux")  # the linker must find what the library needs, also beside it in an unusual place
  set(ARDV_PC_LINK_PLATFORM " -Wl,-rpath-link,\${libdir}")
endif()
configure_file(cmake/ardvrelayd.pc.in ardvrelayd.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/ardvrelayd.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
if(ARDV_PLATFORM STREQUAL "linux")
  configure_file(cmake/ardvplatform.pc.in ardvplatform.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/ardvplatform.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endif()
