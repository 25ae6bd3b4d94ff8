# The service framework for authors of plug-in libraries: find_package(bll_framework), then link bll_framework::plugin.
# There is nothing to link against: a plug-in finds the framework in the process that loads it.
include(CMakeFindDependencyMacro)
find_dependency(Boost COMPONENTS thread date_time)
find_package(PkgConfig QUIET)
if(PkgConfig_FOUND)
  pkg_check_modules(LIBTIRPC QUIET libtirpc)  # its headers, for plug-ins that serve an RPC program (rpc_register.h)
endif()

if(NOT TARGET bll_framework::plugin)
  get_filename_component(_prefix "${CMAKE_CURRENT_LIST_DIR}/../../.." ABSOLUTE)
  while(NOT EXISTS "${_prefix}/include/rte/BLL/core/bll_manager.h" AND NOT _prefix STREQUAL "/")
    get_filename_component(_prefix "${_prefix}/.." ABSOLUTE)
  endwhile()
  add_library(bll_framework::plugin INTERFACE IMPORTED)
  set_target_properties(bll_framework::plugin PROPERTIES
    INTERFACE_INCLUDE_DIRECTORIES "${_prefix}/include;${LIBTIRPC_INCLUDE_DIRS}"
    INTERFACE_COMPILE_FEATURES cxx_std_20
    INTERFACE_LINK_LIBRARIES "Boost::thread;Boost::date_time")
  unset(_prefix)
endif()
