# What makes a mistake in memory end the process instead of doing harm: canaries on the stack,
# checked library calls, addresses that differ from run to run, and tables of the dynamic linker
# that nothing can write to once the program runs. Consumers inherit none of it.
#
# Sanitizers see more than the canaries, and the checked library calls would keep them from it.
option(CARDO_BUNDLE_HARDENING "Protect stack, library calls and the dynamic linker's tables" ON)
if(NOT CARDO_BUNDLE_HARDENING OR CARDO_BUNDLE_SANITIZE OR NOT UNIX OR APPLE)
  return()
endif()

include(CheckCXXSourceCompiles)
include(CheckPIESupported)
check_pie_supported(LANGUAGES CXX)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CARDO_BUNDLE_IS_HARDENED ON)

add_compile_options(-fstack-protector-strong)
add_link_options(LINKER:-z,relro,-z,now,-z,noexecstack,-z,text)

# Library calls are checked in optimised code only. Level 3 also knows sizes that are found at run
# time; compilers and C libraries that do not have it fall back without a word.
set(CMAKE_REQUIRED_FLAGS "-O2 -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3")
check_cxx_source_compiles("
  #include <cstdio>
  #if __USE_FORTIFY_LEVEL != 3
  #error
  #endif
  int main() {}" CARDO_FORTIFY_LEVEL_3)
unset(CMAKE_REQUIRED_FLAGS)
if(CARDO_FORTIFY_LEVEL_3)
  set(cardo_fortify_level 3)
else()
  set(cardo_fortify_level 2)
endif()
add_compile_options(
  "$<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=${cardo_fortify_level}>")
