# Headers that nearly every source includes are compiled once, and with them the templates that they
# instantiate. What a source needs it still includes by itself: builds without this, such as that of
# the package, notice where one of the product does not.
option(ACL_PRECOMPILE "Compile common headers once" OFF)

# acl_precompile(NAME HEADERS headers... [LIBS libraries...]): an object library for them, compiled with
# the flags of this directory. Those who use it (acl_precompiled) have to have the same.
function(acl_precompile name)
  cmake_parse_arguments(ARG "" "" "HEADERS;LIBS" ${ARGN})
  if(NOT ACL_PRECOMPILE)
    return()
  endif()
  set(source ${CMAKE_CURRENT_BINARY_DIR}/${name}.cpp)
  if(NOT EXISTS ${source})
    file(TOUCH ${source})
  endif()
  add_library(${name} OBJECT EXCLUDE_FROM_ALL ${source})
  target_link_libraries(${name} PRIVATE ${ARG_LIBS})
  target_precompile_headers(${name} PRIVATE ${ARG_HEADERS})
  # Without the time of the headers in it, a copy out of ccache is as good as a new one.
  target_compile_options(${name} PRIVATE "$<$<CXX_COMPILER_ID:Clang>:SHELL:-Xclang -fno-pch-timestamp>")
endfunction()

# acl_precompiled(NAME targets...): these start from what is compiled of NAME's headers.
function(acl_precompiled name)
  if(TARGET ${name})
    foreach(target ${ARGN})
      target_precompile_headers(${target} REUSE_FROM ${name})
      # ccache preprocesses, and is to find the name of what is precompiled in there.
      target_compile_options(${target} PRIVATE $<$<CXX_COMPILER_ID:GNU>:-fpch-preprocess>)
    endforeach()
  endif()
endfunction()

# acl_precompiled_below(NAME DIRECTORY [without targets...]): the same, for all below a directory.
function(acl_precompiled_below name directory)
  get_property(targets DIRECTORY ${directory} PROPERTY BUILDSYSTEM_TARGETS)
  foreach(target ${targets})
    get_target_property(type ${target} TYPE)
    if(type MATCHES "STATIC_LIBRARY|OBJECT_LIBRARY|EXECUTABLE" AND NOT target IN_LIST ARGN
       AND NOT target STREQUAL name)
      acl_precompiled(${name} ${target})
    endif()
  endforeach()
  get_property(below DIRECTORY ${directory} PROPERTY SUBDIRECTORIES)
  foreach(directory ${below})
    acl_precompiled_below(${name} ${directory} ${ARGN})
  endforeach()
endfunction()
