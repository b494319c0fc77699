# CMake detects the version of macOS only on macOS. Without it, CMake writes absolute paths to
# programs and shared libraries instead of @rpath.
set(CMAKE_SHARED_LIBRARY_RUNTIME_C_FLAG "-Wl,-rpath,")
