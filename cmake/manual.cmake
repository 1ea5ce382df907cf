# The manual pages: docs/man, filled with what the built programs say of themselves.
if(NOT DAEMON_PLATFORM STREQUAL host_platform OR CMAKE_CROSSCOMPILING)
  return()
endif()

set(MANUAL_DIR ${CMAKE_BINARY_DIR}/man)
file(MAKE_DIRECTORY ${MANUAL_DIR})
set(manual_sources)
set(manual_pages)
foreach(page aclctl.1 acl-app-metrics.1 acl-app-netconf.1 acl-app.conf.5 acl-app.8)
  string(REGEX MATCH "[0-9]$" section ${page})
  list(APPEND manual_sources ${CMAKE_SOURCE_DIR}/docs/man/${page})
  list(APPEND manual_pages ${MANUAL_DIR}/${page})
  install(FILES ${MANUAL_DIR}/${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section})
endforeach()
set(manual_programs)
foreach(program acl-app acl-app-metrics acl-app-netconf aclctl)
  list(APPEND manual_programs PROGRAM.${program}=$<TARGET_FILE:${program}>)
endforeach()
add_custom_command(
  OUTPUT ${manual_pages}
  COMMAND ${PYTHON3} ${CMAKE_SOURCE_DIR}/tools/manual ${MANUAL_DIR} ${manual_sources}
          ${manual_programs} VERSION=${PROJECT_VERSION}
          SETTINGS_FILE=${CMAKE_INSTALL_FULL_SYSCONFDIR}/acl-app/acl-app.conf
          YANG_DIRECTORY=${CMAKE_INSTALL_FULL_DATADIR}/acl-app/yang
          DOC_DIRECTORY=${CMAKE_INSTALL_FULL_DOCDIR}
          METRICS_DIRECTORY=${METRICS_DIRECTORY}
  DEPENDS ${CMAKE_SOURCE_DIR}/tools/manual ${manual_sources} acl-app acl-app-metrics acl-app-netconf aclctl
  VERBATIM)
add_custom_target(manual ALL DEPENDS ${manual_pages})
