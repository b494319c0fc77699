# A toolchain for the target in the environment variable VX_ZIG_TARGET (aarch64-macos,
# x86_64-linux-musl, ...). scripts/matrix/zig.bash installs the cross compiler in .deps/zig.
set(target $ENV{VX_ZIG_TARGET})
string(REGEX MATCH "^[^-]+" CMAKE_SYSTEM_PROCESSOR ${target})
if(target MATCHES macos)
  set(CMAKE_SYSTEM_NAME Darwin)
  set(CMAKE_USER_MAKE_RULES_OVERRIDE ${CMAKE_CURRENT_LIST_DIR}/rpath.cmake)
  set(CMAKE_INSTALL_NAME_TOOL llvm-install-name-tool-14)
else()
  set(CMAKE_SYSTEM_NAME Linux)
  # The tests replace calls of the C library, which a dynamic one permits. The stub of musl has all
  # its variables at the same few addresses: a program at a fixed address would have one copy of
  # stdin, stdout and stderr.
  add_compile_options(-fPIE)
  string(APPEND CMAKE_EXE_LINKER_FLAGS_INIT " -dynamic -pie")
endif()
if(target MATCHES "^aarch64-linux")
  # Programs contain the path of their libraries. The emulator's option for it would also redirect
  # all other absolute paths to that directory.
  set(libraries /usr/aarch64-linux-gnu/lib)
  string(APPEND CMAKE_EXE_LINKER_FLAGS_INIT
    " -Wl,--dynamic-linker=${libraries}/ld-linux-aarch64.so.1 -Wl,-rpath=${libraries}")
  set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64)
endif()

get_filename_component(bin ${CMAKE_CURRENT_LIST_DIR}/../../.deps/zig/bin ABSOLUTE)
foreach(language C CXX)
  set(CMAKE_${language}_COMPILER_TARGET ${target})
endforeach()
set(CMAKE_C_COMPILER ${bin}/cc)
set(CMAKE_CXX_COMPILER ${bin}/c++)
set(CMAKE_AR ${bin}/ar)
set(CMAKE_RANLIB ${bin}/ranlib)

# Libraries come from CMAKE_PREFIX_PATH, programs from the host.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
