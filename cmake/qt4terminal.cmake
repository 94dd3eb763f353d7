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

cpibcr_qt4_require(${CPIBCR_QT4_PREFIX}/lib/libQtCore.so.4 "QtCore")
add_library(Qt4::QtCore SHARED IMPORTED GLOBAL)
set_target_properties(Qt4::QtCore PROPERTIES
  IMPORTED_LOCATION ${CPIBCR_QT4_PREFIX}/lib/libQtCore.so.4
  IMPORTED_SONAME libQtCore.so.4
  INTERFACE_INCLUDE_DIRECTORIES "${qt4_include};${qt4_include}/QtCore"
  INTERFACE_COMPILE_DEFINITIONS "QT_SHARED;QT_CORE_LIB;QT_NO_DEBUG"
  INTERFACE_QT_MAJOR_VERSION 4)
set_property(TARGET Qt4::QtCore APPEND PROPERTY COMPATIBLE_INTERFACE_STRING QT_MAJOR_VERSION)

if(EXISTS ${CPIBCR_QT4_PREFIX}/lib/libQtTest.so.4)
  add_library(Qt4::QtTest SHARED IMPORTED GLOBAL)
  set_target_properties(Qt4::QtTest PROPERTIES
    IMPORTED_LOCATION ${CPIBCR_QT4_PREFIX}/lib/libQtTest.so.4
    IMPORTED_SONAME libQtTest.so.4
    INTERFACE_INCLUDE_DIRECTORIES "${qt4_include}/QtTest"
    INTERFACE_COMPILE_DEFINITIONS "QT_TESTLIB_LIB"
    INTERFACE_LINK_LIBRARIES Qt4::QtCore)
endif()

cpibcr_qt4_require(${CPIBCR_QT4_PREFIX}/bin/moc "Qt 4's moc")
add_executable(Qt4::moc IMPORTED GLOBAL)
set_target_properties(Qt4::moc PROPERTIES IMPORTED_LOCATION ${CPIBCR_QT4_PREFIX}/bin/moc)

cpibcr_qt4_require(${CPIBCR_LOG4QT_PREFIX}/include/log4qt/logger.h "Log4Qt headers")
cpibcr_qt4_require(${CPIBCR_LOG4QT_PREFIX}/lib/liblog4qt.so.1 "liblog4qt.so.1")
add_library(Log4Qt::log4qt SHARED IMPORTED GLOBAL)
set_target_properties(Log4Qt::log4qt PROPERTIES
  IMPORTED_LOCATION ${CPIBCR_LOG4QT_PREFIX}/lib/liblog4qt.so.1
  IMPORTED_SONAME liblog4qt.so.1
  INTERFACE_INCLUDE_DIRECTORIES ${CPIBCR_LOG4QT_PREFIX}/include
  INTERFACE_LINK_LIBRARIES Qt4::QtCore)

set(CPIBCR_QT_CORE Qt4::QtCore)
