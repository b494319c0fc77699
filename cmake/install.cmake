# What `cmake --install` puts in place: the libraries, the public headers under the same root as in
# the tree, a CMake package, pkg-config files, and the licences of what is linked in. No file holds
# an absolute path, so that the whole may be moved.
include(CMakePackageConfigHelpers)
include(GNUInstallDirs)

set(VX_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/vx)

install(TARGETS vx_core vx_fs EXPORT vxTargets FILE_SET HEADERS)
install(EXPORT vxTargets NAMESPACE vx:: DESTINATION ${VX_PACKAGE_DIR})

configure_package_config_file(
  ${CMAKE_CURRENT_LIST_DIR}/vxConfig.cmake.in ${PROJECT_BINARY_DIR}/vxConfig.cmake
  INSTALL_DESTINATION ${VX_PACKAGE_DIR}
  NO_SET_AND_CHECK_MACRO)
# Before 1.0 a minor version may change the interface.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/vxConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(
  FILES ${PROJECT_BINARY_DIR}/vxConfig.cmake ${PROJECT_BINARY_DIR}/vxConfigVersion.cmake
  DESTINATION ${VX_PACKAGE_DIR})

# ---- pkg-config -------------------------------------------------------------------------------

# Flags for what a static target needs at the link, its own dependencies included.
function(vx_link_flags target out)
  get_target_property(needed ${target} INTERFACE_LINK_LIBRARIES)
  string(REGEX REPLACE ".*::" "" name ${target})
  set(flags -l${name})
  foreach(library IN LISTS needed)
    string(REGEX REPLACE "^\\$<LINK_ONLY:(.*)>$" "\\1" library "${library}")
    if(library MATCHES "^[A-Za-z0-9_+.-]+$" AND NOT library MATCHES "-NOTFOUND$")
      list(APPEND flags -l${library})
    endif()
  endforeach()
  list(JOIN flags " " flags)
  set(${out} ${flags} PARENT_SCOPE)
endfunction()

vx_link_flags(miniz::miniz miniz_flags)
vx_link_flags(tinyfiledialogs::tinyfiledialogs dialogs_flags)

# A static library hands its dependencies on; a shared one has them inside.
if(BUILD_SHARED_LIBS)
  set(VX_CORE_DEPENDENCIES)
  set(VX_FS_DEPENDENCIES)
else()
  set(VX_CORE_DEPENDENCIES ${CMAKE_THREAD_LIBS_INIT})
  set(VX_FS_DEPENDENCIES "${miniz_flags} ${dialogs_flags}")
endif()
# The way from the folder of the files to the root of the installation.
file(RELATIVE_PATH VX_PKGCONFIG_PREFIX
  /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
string(REGEX REPLACE "/$" "" VX_PKGCONFIG_PREFIX ${VX_PKGCONFIG_PREFIX})
foreach(name vx-core vx-fs)
  configure_file(${CMAKE_CURRENT_LIST_DIR}/${name}.pc.in ${PROJECT_BINARY_DIR}/${name}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${name}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()

# ---- Licences ---------------------------------------------------------------------------------

foreach(package miniz tinyfiledialogs)
  # Beside the package of our own build, or where package managers put it.
  find_file(VX_${package}_LICENCE
    NAMES LICENSE copyright
    PATHS ${${package}_DIR}/../../.. ${${package}_DIR}/../..
    PATH_SUFFIXES share/licenses/${package} share/${package} ${package}
    NO_DEFAULT_PATH)
  mark_as_advanced(VX_${package}_LICENCE)
  if(VX_${package}_LICENCE)
    install(FILES ${VX_${package}_LICENCE}
      DESTINATION ${CMAKE_INSTALL_DATADIR}/licenses/vx RENAME ${package}.txt)
  endif()
endforeach()
