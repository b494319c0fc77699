# Included by the builds of mutants through CMAKE_PROJECT_INCLUDE. Makes changed sources compile
# fast. With VX_COUNT_LINES, records the lines that a program executes.
function(vx_prepare_for_mutants)
  foreach(library vx_core vx_fs)
    target_precompile_headers(${library} PRIVATE
      <algorithm> <array> <charconv> <fstream> <functional> <memory> <mutex> <optional> <string>
      <string_view> <utility> <vector>)
    if(VX_COUNT_LINES)
      target_compile_options(${library} PRIVATE --coverage)
      target_link_options(${library} PUBLIC --coverage)
    endif()
  endforeach()
  if(VX_COUNT_LINES)
    target_sources(vx_test_support PRIVATE ${PROJECT_SOURCE_DIR}/scripts/mutate/count_at_exit.cpp)
    target_link_options(vx_test_support INTERFACE -Wl,--wrap=_exit,--undefined=__wrap__exit)
  endif()
endfunction()
cmake_language(DEFER CALL vx_prepare_for_mutants)
