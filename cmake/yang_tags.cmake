# Generates yang_tags.h, the XML tags of the configuration's data nodes, from the module.
find_program(PYTHON3 python3 REQUIRED)
set(YANG_TAGS_DIR ${CMAKE_BINARY_DIR}/generated)
file(MAKE_DIRECTORY ${YANG_TAGS_DIR})
add_custom_command(
  OUTPUT ${YANG_TAGS_DIR}/yang_tags.h
  COMMAND ${PYTHON3} ${CMAKE_SOURCE_DIR}/tools/yang-tags ${YANG_TAGS_DIR}/yang_tags.h
          ${CMAKE_SOURCE_DIR}/yang/acl-app.yang
  DEPENDS ${CMAKE_SOURCE_DIR}/tools/yang-tags ${CMAKE_SOURCE_DIR}/yang/acl-app.yang
  VERBATIM)
add_custom_target(yang_tags DEPENDS ${YANG_TAGS_DIR}/yang_tags.h)
