# For a 32-bit big-endian system: Debian's cross compiler, its C library, and an emulator that runs
# what they make.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR ppc)
set(CMAKE_C_COMPILER powerpc-linux-gnu-gcc-12)
set(CMAKE_CXX_COMPILER powerpc-linux-gnu-g++-12)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-ppc)

# The programs know where their libraries lie. Told by an option, the emulator would show them the
# folder in place of the root directory.
set(libraries /usr/powerpc-linux-gnu/lib)
string(CONCAT CMAKE_EXE_LINKER_FLAGS_INIT
  "-Wl,--dynamic-linker=${libraries}/ld.so.1 -Wl,-rpath=${libraries} -Wl,--disable-new-dtags")

# Libraries come from that system and from CMAKE_PREFIX_PATH, programs from this one.
set(CMAKE_FIND_ROOT_PATH /usr/powerpc-linux-gnu)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
