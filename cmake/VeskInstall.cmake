# What `cmake --install` puts where. Components: daemon, tools, bench, docs, dissector. The daemon is at
# /usr/bin/vesk_h264 on a device, whatever starts it, so its prefix is /usr there.

set(VESK_INIT systemd CACHE STRING "What starts the daemon: systemd, busybox, or none (installs no start)")
set_property(CACHE VESK_INIT PROPERTY STRINGS systemd busybox none)
set(VESK_UNITS lib/systemd/system CACHE STRING "Where systemd's units go")
set(CMAKE_INSTALL_DOCDIR share/doc/vesk-h264 CACHE PATH "Where the documents go") # as its units say
include(GNUInstallDirs)

install(TARGETS vesk_h264 RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT daemon)
set(folder ${PROJECT_SOURCE_DIR}/packaging)
if(NOT VESK_INIT MATCHES "^(systemd|busybox|none)$")
  message(FATAL_ERROR "VESK_INIT is systemd, busybox or none, and not \"${VESK_INIT}\"")
endif()
if(NOT VESK_INIT STREQUAL none)
  install(PROGRAMS ${folder}/board/vesk_h264_program DESTINATION ${CMAKE_INSTALL_SBINDIR} COMPONENT daemon)
  install(FILES ${folder}/board/default DESTINATION ${CMAKE_INSTALL_FULL_SYSCONFDIR}/default RENAME vesk_h264
    COMPONENT daemon)
endif()
if(VESK_INIT STREQUAL systemd)
  install(PROGRAMS ${folder}/systemd/vesk_h264_comes_up DESTINATION ${CMAKE_INSTALL_LIBEXECDIR} COMPONENT daemon)
  install(FILES ${folder}/systemd/vesk-h264.service ${folder}/systemd/vesk-h264-again.service
    DESTINATION ${VESK_UNITS} COMPONENT daemon)
elseif(VESK_INIT STREQUAL busybox)
  install(PROGRAMS ${folder}/board/vesk_h264_supervisor DESTINATION ${CMAKE_INSTALL_SBINDIR} COMPONENT daemon)
  install(PROGRAMS ${folder}/board/S60vesk_h264 DESTINATION ${CMAKE_INSTALL_FULL_SYSCONFDIR}/init.d
    COMPONENT daemon)
endif()

# Programs can be made without their manual, as for a board.
if(SCDOC)
  install(FILES ${PROJECT_BINARY_DIR}/vesk_h264.8 DESTINATION ${CMAKE_INSTALL_MANDIR}/man8 COMPONENT daemon OPTIONAL)
endif()

if(TARGET veskctl)
  install(TARGETS veskctl RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
  set(made ${PROJECT_BINARY_DIR}/tools)
  install(FILES ${made}/veskctl.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
    RENAME veskctl COMPONENT tools)
  if(SCDOC)
    install(FILES ${made}/veskctl.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
  endif()
endif()

# The bench brings its own board, and what starts the daemon there.
set(bench ${PROJECT_SOURCE_DIR}/testbench)
install(PROGRAMS ${bench}/vesk-bench DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT bench)
set(place ${CMAKE_INSTALL_LIBEXECDIR}/vesk-bench)
install(PROGRAMS ${bench}/board ${folder}/board/vesk_h264_program ${folder}/board/vesk_h264_supervisor
  DESTINATION ${place} COMPONENT bench)
install(DIRECTORY ${bench}/etc DESTINATION ${place} USE_SOURCE_PERMISSIONS COMPONENT bench)
if(SCDOC)
  install(FILES ${PROJECT_BINARY_DIR}/vesk-bench.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT bench OPTIONAL)
endif()

install(FILES ${PROJECT_SOURCE_DIR}/tools/wireshark/vesk.lua
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/wireshark/plugins COMPONENT dissector)

# The documents refer to each other as they do in the sources.
foreach(document README.md CHANGELOG.md CONTRIBUTING.md LICENSE SECURITY.md packaging/README.md packaging/buildroot/README.md
    packaging/deb/README.md protocol/vesk.yaml testbench/README.md tests/replay/README.md tools/wireshark/README.md
    web/README.md)
  cmake_path(GET document PARENT_PATH place)
  install(FILES ${PROJECT_SOURCE_DIR}/${document} DESTINATION ${CMAKE_INSTALL_DOCDIR}/${place} COMPONENT docs)
endforeach()
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT docs)
