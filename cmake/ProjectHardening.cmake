# Release builds make a fault of memory end the process instead of being used. Sanitizers and the debugger see more
# without it, so that other builds have none of this. scripts/check-hardening looks for each of these in the programs.
include(CheckPIESupported)
include(CheckCXXCompilerFlag)
include(CheckCXXSourceCompiles)

# With CMAKE_POSITION_INDEPENDENT_CODE: programs are linked as such, whatever the compiler's own default is.
check_pie_supported()

if(PPPOEIA_SANITIZE OR PPPOEIA_LIBFUZZER)
  return()
endif()
set(hardened $<CONFIG:Release,RelWithDebInfo>)

# The C library's headers warn where they or the compiler do not know level 3.
set(CMAKE_REQUIRED_FLAGS "-O2 -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3")
check_cxx_source_compiles("
  #include <cstdio>
  #if __USE_FORTIFY_LEVEL < 3
  #error no level 3
  #endif
  int main() {}" PPPOEIA_HAVE_FORTIFY_3)
unset(CMAKE_REQUIRED_FLAGS)
if(PPPOEIA_HAVE_FORTIFY_3)
  set(fortify 3)
else()
  set(fortify 2)
endif()
target_compile_options(project_options INTERFACE
  $<${hardened}:-U_FORTIFY_SOURCE> $<${hardened}:-D_FORTIFY_SOURCE=${fortify}>)

# The last two are of x86 and of AArch64.
foreach(flag -fstack-protector-strong -fstack-clash-protection -fcf-protection=full -mbranch-protection=standard)
  string(MAKE_C_IDENTIFIER "PPPOEIA_HAVE${flag}" known)
  check_cxx_compiler_flag(${flag} ${known})
  if(${known})
    target_compile_options(project_options INTERFACE $<${hardened}:${flag}>)
  endif()
endforeach()
target_link_options(project_options INTERFACE $<${hardened}:LINKER:-z,relro,-z,now,-z,noexecstack>)

# Optimizing across files gives back what that costs.
include(CheckIPOSupported)
check_ipo_supported(RESULT PPPOEIA_HAVE_LTO LANGUAGES CXX)
if(PPPOEIA_HAVE_LTO)
  set(CMAKE_INTERPROCEDURAL_OPTIMIZATION_RELEASE ON)
  # Seen across files, GCC 12 warns inside its own std::string again (GCC bug 105651).
  target_link_options(project_options INTERFACE $<$<AND:$<CONFIG:Release>,$<CXX_COMPILER_ID:GNU>>:-Wno-stringop-overflow>)
endif()
