# Where three quarters of a build's time go is the optimiser. A preset that is to be built soon has no
# optimisation but for these parts, which look at every entry that is bound after each commit: without,
# a small commit takes seven times as long where 65,536 are. The same for back ends and tables, which
# look at what differs, makes no difference that shows. Elsewhere ACL_HOT_FLAGS is empty, and everything
# has the flags of the build type.
set(ACL_HOT_FLAGS "" CACHE STRING "Flags for the parts that commits wait for, such as -O1")
set(HOT_PARTS)
if(ACL_HOT_FLAGS)
  set(HOT_PARTS acl_core filters_common)
endif()
foreach(part ${HOT_PARTS})
  target_compile_options(${part} PRIVATE ${ACL_HOT_FLAGS})
endforeach()
