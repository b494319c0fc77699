# The warnings for our own sources. This interface target is not exported.
add_library(vx_warnings INTERFACE)
target_compile_options(vx_warnings INTERFACE
  -Wall
  -Wextra
  -Wpedantic
  -Wcast-align
  -Wcast-qual
  -Wconversion
  -Wdouble-promotion
  -Wextra-semi
  -Wformat=2
  -Wimplicit-fallthrough
  -Wnon-virtual-dtor
  -Wold-style-cast
  -Woverloaded-virtual
  -Wshadow
  -Wsign-conversion
  -Wundef
  -Wunused
  $<$<CXX_COMPILER_ID:GNU>:-Wduplicated-branches>
  $<$<CXX_COMPILER_ID:GNU>:-Wduplicated-cond>
  $<$<CXX_COMPILER_ID:GNU>:-Wlogical-op>
  # False positives of GCC 12 in the concatenation of std::string when it optimises.
  $<$<AND:$<CXX_COMPILER_ID:GNU>,$<VERSION_LESS:$<CXX_COMPILER_VERSION>,13>>:-Wno-restrict>
  $<$<BOOL:${VX_WARNINGS_AS_ERRORS}>:-Werror>)
# As C++23, GCC 12 inlines std::string and reports false positives in its copies.
if(CMAKE_CXX_STANDARD GREATER 20 AND CMAKE_CXX_COMPILER_ID STREQUAL GNU
    AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  target_compile_options(vx_warnings INTERFACE -Wno-array-bounds -Wno-stringop-overflow
    -Wno-stringop-overread)
endif()
