# Installs the printers for gdb and lldb.

install(FILES ${PROJECT_SOURCE_DIR}/tools/debug/vx_gdb.py ${PROJECT_SOURCE_DIR}/tools/debug/vx_lldb.py
  DESTINATION ${CMAKE_INSTALL_DATADIR}/vx/debug)

# gdb loads a script by itself that has the library's file name and is in this directory, which
# repeats the library's full path. That works for an installation in /usr; a static library has no
# file name in a running program, so there the script is sourced.
if(BUILD_SHARED_LIBS AND NOT APPLE)
  install(FILES ${PROJECT_SOURCE_DIR}/tools/debug/vx_gdb.py
    DESTINATION ${CMAKE_INSTALL_DATADIR}/gdb/auto-load${CMAKE_INSTALL_FULL_LIBDIR}
    RENAME $<TARGET_FILE_NAME:vx_core>-gdb.py)
endif()
