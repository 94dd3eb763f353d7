# 32-bit x86 Linux with the machine's own compiler (g++ -m32, from g++-multilib) against a
# Debian i386 root that holds the i386 libraries and headers:
#   cmake -S . -B build-i386 -DCMAKE_TOOLCHAIN_FILE=cmake/i386-linux-gnu.cmake -DCPIBCR_I386_ROOT=DIR
# scripts/i386.sh makes the root (by default /var/cache/cpibcr/i386-root). Qt's moc is this
# machine's own (qtbase5-dev-tools), so nothing of the root runs during the build.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR i686)

if(NOT CPIBCR_I386_ROOT)
  if(DEFINED ENV{CPIBCR_I386_ROOT})
    set(CPIBCR_I386_ROOT $ENV{CPIBCR_I386_ROOT})
  else()
    set(CPIBCR_I386_ROOT /var/cache/cpibcr/i386-root)
  endif()
endif()
# try_compile projects read this file again and need the same root.
set(ENV{CPIBCR_I386_ROOT} ${CPIBCR_I386_ROOT})
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES CPIBCR_I386_ROOT)

set(CMAKE_SYSROOT ${CPIBCR_I386_ROOT})
set(CMAKE_LIBRARY_ARCHITECTURE i386-linux-gnu)
set(CMAKE_C_COMPILER gcc)
set(CMAKE_CXX_COMPILER g++)
set(CMAKE_C_FLAGS_INIT -m32)
set(CMAKE_CXX_FLAGS_INIT -m32)
set(CMAKE_EXE_LINKER_FLAGS_INIT -m32)
set(CMAKE_SHARED_LINKER_FLAGS_INIT -m32)
set(CMAKE_MODULE_LINKER_FLAGS_INIT -m32)

if(NOT CPIBCR_HOST_MOC AND EXISTS /usr/lib/qt5/bin/moc)
  set(CPIBCR_HOST_MOC /usr/lib/qt5/bin/moc)
endif()

set(CMAKE_FIND_ROOT_PATH ${CPIBCR_I386_ROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# The package's architecture and its dependencies are those of the root.
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE i386)
