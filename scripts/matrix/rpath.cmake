# CMake learns the version of macOS from a running one, and without it writes absolute paths into
# programs and shared libraries in place of @rpath.
set(CMAKE_SHARED_LIBRARY_RUNTIME_C_FLAG "-Wl,-rpath,")
