# The core: everything but main(), against the declarations of platform/ alone. An object library,
# so that the log callouts, which nothing in the process calls, are in every program that has it.
file(GLOB CORE_SOURCES CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/app/*.cpp
     ${CMAKE_SOURCE_DIR}/confd/*.cpp ${CMAKE_SOURCE_DIR}/model/*.cpp
     ${CMAKE_SOURCE_DIR}/filter/*.cpp)
list(FILTER CORE_SOURCES EXCLUDE REGEX "/app/main\\.cpp$")
add_library(acl_core OBJECT ${CORE_SOURCES})
target_link_libraries(acl_core PUBLIC acl_headers)
# Its files name their own the same way (kSource); compiled together, each gets a name instead.
set_target_properties(acl_core PROPERTIES UNITY_BUILD_UNIQUE_ID kSource)
# This one wants the C library's assertions in every build type, the others do not.
set_source_files_properties(${CMAKE_SOURCE_DIR}/model/value_check.cpp PROPERTIES
                            SKIP_UNITY_BUILD_INCLUSION ON)
# A path without keys is a format without arguments; distributions' flags take that for a fault.
set_source_files_properties(${CMAKE_SOURCE_DIR}/confd/resource_status.cpp PROPERTIES
                            COMPILE_OPTIONS -Wno-format-security)
