# Where three quarters of a build's time go is the optimiser. A preset that is to be built soon has no
# optimisation but for these parts, which small commits wait for, as they look at every entry that is
# bound. Elsewhere ACL_HOT_FLAGS is empty, and everything has the flags of the build type.
set(ACL_HOT_FLAGS "" CACHE STRING "Flags for the parts that commits wait for, such as -O1")
set(HOT_PARTS)
if(ACL_HOT_FLAGS)
  set(HOT_PARTS acl_core classifier filters_common filter_mgr filter_mgr_ebpf)
endif()
foreach(part ${HOT_PARTS})
  target_compile_options(${part} PRIVATE ${ACL_HOT_FLAGS})
endforeach()
