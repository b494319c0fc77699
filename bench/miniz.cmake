include_guard(GLOBAL)

# Tells vx_miniz.h whether miniz was built with libdeflate.
add_library(vx_miniz_in_use INTERFACE)
target_link_libraries(vx_miniz_in_use INTERFACE miniz::miniz)
get_target_property(miniz_libraries miniz::miniz INTERFACE_LINK_LIBRARIES)
if(miniz_libraries MATCHES deflate)
  target_compile_definitions(vx_miniz_in_use INTERFACE VX_MINIZ_USES_LIBDEFLATE)
endif()
