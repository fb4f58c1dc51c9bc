# SPDX-License-Identifier: Apache-2.0
# Run by the installation: the unit and its drop-in name the daemon where it is put, and only now is it known where that is
# ("cmake --install --prefix"). ARDV_SOURCE, ARDV_BINARY, ARDV_SBINDIR and ARDV_EXAMPLES are set.
cmake_path(ABSOLUTE_PATH CMAKE_INSTALL_PREFIX NORMALIZE OUTPUT_VARIABLE prefix)
cmake_path(ABSOLUTE_PATH ARDV_SBINDIR BASE_DIRECTORY ${prefix} NORMALIZE OUTPUT_VARIABLE CMAKE_INSTALL_FULL_SBINDIR)
foreach(file ardvrelayd.service foreground.conf)
  configure_file(${ARDV_SOURCE}/packaging/systemd/${file}.in ${ARDV_BINARY}/installed/${file} @ONLY)
endforeach()
file(INSTALL ${ARDV_BINARY}/installed/ardvrelayd.service DESTINATION ${CMAKE_INSTALL_PREFIX}/lib/systemd/system)
file(INSTALL ${ARDV_BINARY}/installed/foreground.conf DESTINATION ${CMAKE_INSTALL_PREFIX}/${ARDV_EXAMPLES}/systemd)
