# A toolchain for a 32-bit big-endian system: Debian's cross compiler, its C library and an
# emulator.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR ppc)
set(CMAKE_C_COMPILER powerpc-linux-gnu-gcc-12)
set(CMAKE_CXX_COMPILER powerpc-linux-gnu-g++-12)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-ppc)

# Programs contain the path of their libraries. The emulator's option for it would also redirect all
# other absolute paths to that directory.
set(libraries /usr/powerpc-linux-gnu/lib)
string(CONCAT CMAKE_EXE_LINKER_FLAGS_INIT
  "-Wl,--dynamic-linker=${libraries}/ld.so.1 -Wl,-rpath=${libraries} -Wl,--disable-new-dtags")

# Libraries come from that system and from CMAKE_PREFIX_PATH, programs from the host.
set(CMAKE_FIND_ROOT_PATH /usr/powerpc-linux-gnu)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
