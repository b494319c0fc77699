# Configures `cpack` to create an archive of the installation and, on Debian, a package of the
# shared libraries and a development package. Debian packages require the prefix /usr.
set(CPACK_GENERATOR TGZ)
set(CPACK_PACKAGE_VENDOR "the vx authors")
# Distributors set this to their own address.
set(CPACK_PACKAGE_CONTACT "the vx authors <vx@example.org>" CACHE STRING
  "Maintainer of the packages, with an address")
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_STRIP_FILES ON)

find_program(VX_DPKG dpkg)
mark_as_advanced(VX_DPKG)
if(VX_DPKG AND BUILD_SHARED_LIBS AND CMAKE_INSTALL_PREFIX STREQUAL /usr)
  list(APPEND CPACK_GENERATOR DEB)
  set(library libvx${VX_SOVERSION})
  set(development libvx-dev)
  set(CPACK_DEB_COMPONENT_INSTALL ON)
  set(CPACK_COMPONENTS_ALL library development)
  set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS library)
  set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
  set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
  set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME ${library})
  set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
  set(CPACK_DEBIAN_LIBRARY_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME ${development})
  set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
  set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
  set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
  # Where dpkg-shlibdeps finds vx_core, a dependency of vx_fs.
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})
  set(CPACK_COMPONENT_LIBRARY_DESCRIPTION
    "Directories, copies, listings, well-known directories, zip archives and file
dialogs for desktop applications. This package contains the shared libraries.")
  set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
    "Directories, copies, listings, well-known directories, zip archives and file
dialogs for desktop applications. This package contains the headers, and files
for CMake, pkg-config and debuggers.")
  file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/triggers "activate-noawait ldconfig\n")
  set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_BINARY_DIR}/triggers)

  # Debian's policy requires a copyright file and a changelog in each package.
  file(READ ${PROJECT_SOURCE_DIR}/LICENSE copyright)
  file(READ ${PROJECT_SOURCE_DIR}/NOTICE notice)
  string(APPEND copyright "\n${notice}")
  foreach(package miniz tinyfiledialogs)
    if(VX_${package}_LICENCE)
      file(READ ${VX_${package}_LICENCE} licence)
      string(APPEND copyright "\n${package}\n\n${licence}")
    endif()
  endforeach()
  file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/copyright "${copyright}")
  string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)
  file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/changelog
    "vx (${PROJECT_VERSION}) unstable; urgency=medium\n\n  * See CHANGELOG.md.\n\n"
    " -- ${CPACK_PACKAGE_CONTACT}  ${date}\n")
  execute_process(COMMAND gzip -9nf changelog WORKING_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}
    COMMAND_ERROR_IS_FATAL ANY)
  foreach(component library development)
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/copyright ${CMAKE_CURRENT_BINARY_DIR}/changelog.gz
      DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${${component}} COMPONENT ${component})
  endforeach()
endif()
include(CPack)
