# The terminal's libraries for -DCPIBCR_QT=4: Qt 4.8 (QtCore, QtTest, moc) and Log4Qt as one
# shared liblog4qt.so.1, as the POS terminal's host has them.
#
#   -DCPIBCR_QT4_PREFIX=DIR      include/QtCore, lib/libQtCore.so.4, bin/moc: a Qt 4.8 install
#                                or a terminal SDK (scripts/qt4.sh builds one into
#                                /var/cache/cpibcr/qt4-i386)
#   -DCPIBCR_LOG4QT_PREFIX=DIR   include/log4qt/logger.h, lib/liblog4qt.so.1 (default: the Qt prefix)
#
# Defines the imported targets Qt4::QtCore, Qt4::QtTest, Qt4::moc (which CMake's AUTOMOC runs
# for targets that link Qt 4) and Log4Qt::log4qt.
set(CPIBCR_QT4_PREFIX "" CACHE PATH "Qt 4.8 installation of the terminal build")
set(CPIBCR_LOG4QT_PREFIX "${CPIBCR_QT4_PREFIX}" CACHE PATH "Log4Qt installation of the terminal build")
if(NOT CPIBCR_QT4_PREFIX)
  message(FATAL_ERROR "CPIBCR_QT=4 needs CPIBCR_QT4_PREFIX, a Qt 4.8 installation (scripts/qt4.sh builds one)")
endif()

function(cpibcr_qt4_require path what)
  if(NOT EXISTS ${path})
    message(FATAL_ERROR "${what} not found: ${path}")
  endif()
endfunction()

set(qt4_include ${CPIBCR_QT4_PREFIX}/include)
cpibcr_qt4_require(${qt4_include}/QtCore/qglobal.h "Qt 4 headers")
file(STRINGS ${qt4_include}/QtCore/qglobal.h qt4_version_line REGEX "^#define QT_VERSION_STR +\"")
string(REGEX MATCH "[0-9]+\\.[0-9]+\\.[0-9]+" CPIBCR_QT4_VERSION "${qt4_version_line}")
if(NOT CPIBCR_QT4_VERSION MATCHES "^4\\.8\\.")
  message(FATAL_ERROR "Qt 4.8 expected in ${CPIBCR_QT4_PREFIX}, found \"${CPIBCR_QT4_VERSION}\"")
endif()
message(STATUS "Qt ${CPIBCR_QT4_VERSION} in ${CPIBCR_QT4_PREFIX}, Log4Qt in ${CPIBCR_LOG4QT_PREFIX}")

# The version AUTOMOC reads to pick moc's generation.
set(QT_VERSION_MAJOR 4)
set(QT_VERSION_MINOR 8)

# An imported shared library DIR/lib/FILE (FILE is also its soname) with the include folders,
# compile definitions and libraries its users get.
function(cpibcr_qt4_library target dir file)
  cmake_parse_arguments(PARSE_ARGV 3 arg "" "" "INCLUDE;DEFINES;LINK")
  cpibcr_qt4_require(${dir}/lib/${file} ${file})
  add_library(${target} SHARED IMPORTED GLOBAL)
  set_target_properties(${target} PROPERTIES
    IMPORTED_LOCATION ${dir}/lib/${file}
    IMPORTED_SONAME ${file}
    INTERFACE_INCLUDE_DIRECTORIES "${arg_INCLUDE}"
    INTERFACE_COMPILE_DEFINITIONS "${arg_DEFINES}"
    INTERFACE_LINK_LIBRARIES "${arg_LINK}")
endfunction()

cpibcr_qt4_library(Qt4::QtCore ${CPIBCR_QT4_PREFIX} libQtCore.so.4
  INCLUDE ${qt4_include} ${qt4_include}/QtCore
  DEFINES QT_SHARED QT_CORE_LIB QT_NO_DEBUG)
set_target_properties(Qt4::QtCore PROPERTIES INTERFACE_QT_MAJOR_VERSION 4)
set_property(TARGET Qt4::QtCore APPEND PROPERTY COMPATIBLE_INTERFACE_STRING QT_MAJOR_VERSION)

if(EXISTS ${CPIBCR_QT4_PREFIX}/lib/libQtTest.so.4)
  cpibcr_qt4_library(Qt4::QtTest ${CPIBCR_QT4_PREFIX} libQtTest.so.4
    INCLUDE ${qt4_include}/QtTest DEFINES QT_TESTLIB_LIB LINK Qt4::QtCore)
endif()

cpibcr_qt4_require(${CPIBCR_QT4_PREFIX}/bin/moc "Qt 4's moc")
add_executable(Qt4::moc IMPORTED GLOBAL)
set_target_properties(Qt4::moc PROPERTIES IMPORTED_LOCATION ${CPIBCR_QT4_PREFIX}/bin/moc)

cpibcr_qt4_require(${CPIBCR_LOG4QT_PREFIX}/include/log4qt/logger.h "Log4Qt headers")
cpibcr_qt4_library(Log4Qt::log4qt ${CPIBCR_LOG4QT_PREFIX} liblog4qt.so.1
  INCLUDE ${CPIBCR_LOG4QT_PREFIX}/include LINK Qt4::QtCore)

set(CPIBCR_QT_CORE Qt4::QtCore)
