# What the whole build agrees on: the language, the warnings, the sanitizers and where programs go.

option(PPPOEIA_BUILD_TESTS "Build the tests and replay the fuzz corpora as tests" ON)
option(PPPOEIA_BUILD_BENCHMARKS "Build the benchmarks" ON)
option(PPPOEIA_STATUS "Tell what became of frames; without, to measure what that costs" ON)
option(PPPOEIA_WARNINGS_AS_ERRORS "Stop the build at a warning" OFF)
set(PPPOEIA_SANITIZE "" CACHE STRING "Sanitizers for all targets: empty, 'address,undefined' or 'thread'")
option(PPPOEIA_LIBFUZZER "Build the fuzz targets with libFuzzer (needs clang); otherwise they replay their corpus" OFF)

# A node that ships the closed platform libraries names them here; the stand-ins are used otherwise.
set(PPPOEIA_IPPC_LIBRARY "" CACHE FILEPATH "The node's own IPPC library")
set(PPPOEIA_NCFM_LIBRARY "" CACHE FILEPATH "The node's own node-configuration library")
set(PPPOEIA_NODEINFO_LIBRARY "" CACHE FILEPATH "The node's own node-information library")
set(PPPOEIA_BRIDGE_PLUGIN_LIBRARY "" CACHE FILEPATH "The node's own bridge plug-in")

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE Release CACHE STRING "" FORCE)
endif()

find_package(Threads REQUIRED)
find_package(PkgConfig REQUIRED)

# Every target of the project links this.
add_library(project_options INTERFACE)
target_include_directories(project_options INTERFACE ${PROJECT_SOURCE_DIR})
target_compile_definitions(project_options INTERFACE _GNU_SOURCE)
target_compile_options(project_options INTERFACE -Wall -Wextra -Wshadow -Wconversion -fno-strict-aliasing)
# GCC 12 warns of overlapping copies inside its own std::string (GCC bug 105651).
target_compile_options(project_options INTERFACE $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>)
target_link_libraries(project_options INTERFACE Threads::Threads)
if(PPPOEIA_WARNINGS_AS_ERRORS)
  target_compile_options(project_options INTERFACE -Werror)
endif()
if(PPPOEIA_SANITIZE)
  target_compile_options(project_options INTERFACE
    -fsanitize=${PPPOEIA_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(project_options INTERFACE -fsanitize=${PPPOEIA_SANITIZE})
  # clang's look at the types of called functions: ONC RPC passes each of its converters as a function of any arguments.
  target_compile_options(project_options INTERFACE $<$<COMPILE_LANG_AND_ID:CXX,Clang>:-fno-sanitize=function>)
endif()
if(PPPOEIA_LIBFUZZER)
  # The libraries tell the fuzzer which of their branches an input took; without it, it searches blindly.
  target_compile_options(project_options INTERFACE -fsanitize=fuzzer-no-link)
endif()
