# The daemon: the core, linked with the open platform or with another one. All of the core goes in,
# for the platform finds the log dictionary's callouts by their names in the executable.
include(GNUInstallDirs)

if(ACL_PLATFORM_LIBRARIES)
  set(DAEMON_PLATFORM ${ACL_PLATFORM_LIBRARIES})
elseif(TARGET qzconfd AND TARGET filter_mgr_client)
  set(DAEMON_PLATFORM host_platform)
endif()

# The allocator of the daemon on this platform (see host/runtime/memory.h). Sanitizers bring theirs.
add_library(daemon_allocator INTERFACE)
if(TARGET host_platform AND NOT ACL_SANITIZE)
  find_package(PkgConfig REQUIRED)
  pkg_check_modules(JEMALLOC REQUIRED IMPORTED_TARGET GLOBAL jemalloc)
  target_link_libraries(daemon_allocator INTERFACE PkgConfig::JEMALLOC)
endif()

if(TARGET acl_core AND DAEMON_PLATFORM)
  add_executable(acl-app ${CMAKE_SOURCE_DIR}/app/main.cpp)
  set_target_properties(acl-app PROPERTIES ENABLE_EXPORTS ON)
  target_link_libraries(acl-app PRIVATE acl_core ${DAEMON_PLATFORM} daemon_allocator)
  if(DAEMON_PLATFORM STREQUAL host_platform)
    target_link_libraries(acl-app PRIVATE command_line)
  endif()
  install(TARGETS acl-app RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR})
endif()

# Every program tells the version of project(); the package's is the one in its changelog.
set_property(DIRECTORY ${CMAKE_SOURCE_DIR} APPEND PROPERTY
             CMAKE_CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/debian/changelog)
file(STRINGS ${CMAKE_SOURCE_DIR}/debian/changelog latest_change LIMIT_COUNT 1)
if(NOT latest_change MATCHES "^acl-app \\(${PROJECT_VERSION}\\)")
  message(FATAL_ERROR "This is version ${PROJECT_VERSION}, and debian/changelog says: ${latest_change}")
endif()

set(ACL_UNIT_DIRECTORY lib/systemd/system CACHE PATH "Where the service unit is installed")
set(ACL_SOCKET_GROUP "" CACHE STRING "netconf_socket_group in the settings that are installed")
set(ACL_WRITE_GROUP "" CACHE STRING "netconf_write_group in the settings that are installed")

# The files that an installed daemon needs, with the paths of this installation.
install(DIRECTORY ${CMAKE_SOURCE_DIR}/yang DESTINATION ${CMAKE_INSTALL_DATADIR}/acl-app
        FILES_MATCHING PATTERN "*.yang")
install(DIRECTORY ${CMAKE_SOURCE_DIR}/docs/ ${CMAKE_SOURCE_DIR}/examples
        DESTINATION ${CMAKE_INSTALL_DOCDIR} PATTERN man EXCLUDE PATTERN __pycache__ EXCLUDE)
foreach(file acl-app.conf acl-app.service acl-app-metrics.service sshd-acl-app.conf)
  configure_file(${CMAKE_SOURCE_DIR}/dist/${file}.in ${CMAKE_BINARY_DIR}/dist/${file} @ONLY)
endforeach()
# The settings are the operator's: a file that is there stays, with the new one beside it.
set(SETTINGS_DIRECTORY ${CMAKE_INSTALL_FULL_SYSCONFDIR}/acl-app)
install(FILES ${CMAKE_BINARY_DIR}/dist/acl-app.conf DESTINATION ${SETTINGS_DIRECTORY}
        RENAME acl-app.conf.default COMPONENT settings)
install(CODE "
  if(NOT EXISTS \"\$ENV{DESTDIR}${SETTINGS_DIRECTORY}/acl-app.conf\")
    file(INSTALL \"${CMAKE_BINARY_DIR}/dist/acl-app.conf\" DESTINATION \"${SETTINGS_DIRECTORY}\")
  endif()" COMPONENT settings)
install(FILES ${CMAKE_BINARY_DIR}/dist/acl-app.service DESTINATION ${ACL_UNIT_DIRECTORY})
install(FILES ${CMAKE_SOURCE_DIR}/dist/acl-app.sysusers DESTINATION lib/sysusers.d
        RENAME acl-app.conf)
# The same for who shows the daemon, with what Prometheus and Grafana read.
set(METRICS_DIRECTORY ${CMAKE_INSTALL_FULL_DATADIR}/acl-app-metrics)
install(FILES ${CMAKE_BINARY_DIR}/dist/acl-app-metrics.service DESTINATION ${ACL_UNIT_DIRECTORY})
install(FILES ${CMAKE_SOURCE_DIR}/dist/acl-app-metrics.sysusers DESTINATION lib/sysusers.d
        RENAME acl-app-metrics.conf)
install(FILES ${CMAKE_SOURCE_DIR}/dist/prometheus/acl-app.rules.yml
              ${CMAKE_SOURCE_DIR}/dist/prometheus/grafana-dashboard.json
        DESTINATION ${METRICS_DIRECTORY})
install(FILES ${CMAKE_BINARY_DIR}/dist/sshd-acl-app.conf
        DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples)
