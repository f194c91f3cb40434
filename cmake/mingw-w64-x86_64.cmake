# Cross-compiles for 64-bit Windows with Debian's MinGW-w64. The -posix drivers are the ones whose
# runtime has std::thread and std::mutex, which the logging library needs.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(TKDAST_MINGW_TRIPLET x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${TKDAST_MINGW_TRIPLET}-gcc-posix)
set(CMAKE_CXX_COMPILER ${TKDAST_MINGW_TRIPLET}-g++-posix)
set(CMAKE_RC_COMPILER ${TKDAST_MINGW_TRIPLET}-windres)
set(CMAKE_AR ${TKDAST_MINGW_TRIPLET}-gcc-ar-posix)
set(CMAKE_RANLIB ${TKDAST_MINGW_TRIPLET}-gcc-ranlib-posix)

# A library of the build machine must never be taken for one of Windows: besides the compiler's own
# tree only the prefixes named on the command line are searched.
set(CMAKE_FIND_ROOT_PATH /usr/${TKDAST_MINGW_TRIPLET} ${CMAKE_PREFIX_PATH})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Programs of the build run under Wine where it is installed.
find_program(TKDAST_WINE NAMES wine)
mark_as_advanced(TKDAST_WINE)
if(TKDAST_WINE)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${TKDAST_WINE})
endif()
