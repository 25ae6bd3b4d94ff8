# The client library of the agent's socket: find_package(pppoeia), then link pppoeia::client and include
# "tools/agent_client/agent_client.h".
include(CMakeFindDependencyMacro)
find_dependency(Threads)

if(NOT TARGET pppoeia::client)
  get_filename_component(_libdir "${CMAKE_CURRENT_LIST_DIR}/../.." ABSOLUTE)
  get_filename_component(_prefix "${_libdir}/.." ABSOLUTE)
  while(NOT EXISTS "${_prefix}/include/pppoeia-client" AND NOT _prefix STREQUAL "/")
    get_filename_component(_prefix "${_prefix}/.." ABSOLUTE)
  endwhile()
  add_library(pppoeia::client STATIC IMPORTED)
  set_target_properties(pppoeia::client PROPERTIES
    IMPORTED_LOCATION "${_libdir}/libpppoeia_client.a"
    INTERFACE_INCLUDE_DIRECTORIES "${_prefix}/include/pppoeia-client"
    INTERFACE_COMPILE_FEATURES cxx_std_20
    INTERFACE_LINK_LIBRARIES Threads::Threads)
  unset(_prefix)
  unset(_libdir)
endif()
