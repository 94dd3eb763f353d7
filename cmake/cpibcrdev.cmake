# What a POS host builds against: the cash-control interface and shared types, the
# serial device interface with its QSerialPort implementation (which can record the line
# to a trace file), the timer and the logging set-up, as the static library cpibcr::host
# with its headers and a CMake package (find_package(cpibcr)). Installed as the component
# "dev". The plug-in keeps its own copies of the same code inside.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(cpibcr_dev_headers
  cashcontrol/abstractcashcontrol.h
  cashcontrol/cashcontrolexc.h
  cashcontrol/cashcontrolunit.h
  cashcontrol/ccunitmaintenanceinfo.h
  cashcontrol/ecashcontrol.h
  cashcontrol/sumdetailed.h
  cashcontrol/units.h
  host/abstractserialdevice.h
  host/interfaceids.h
  host/linerecorder.h
  host/logging.h
  host/logsetup.h
  host/serialport.h
  host/timer.h
  tracewrite/tracewrite.h)

add_library(cpibcr_hostlib STATIC
  ${cpibcr_dev_headers}
  host/serialport.cpp host/linerecorder.cpp host/timer.cpp host/logging.cpp
  tracewrite/tracewrite.cpp
  cashcontrol/sumdetailed.cpp cashcontrol/ecashcontrol.cpp)
set_target_properties(cpibcr_hostlib PROPERTIES OUTPUT_NAME cpibcr-host EXPORT_NAME host)
target_include_directories(cpibcr_hostlib PUBLIC
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>
  $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/cpibcr>)
find_package(Threads REQUIRED)
target_link_libraries(cpibcr_hostlib PUBLIC Qt5::Core Qt5::SerialPort log4cxx Threads::Threads)
add_library(cpibcr::host ALIAS cpibcr_hostlib)

foreach(header IN LISTS cpibcr_dev_headers)
  get_filename_component(dir ${header} DIRECTORY)
  install(FILES ${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/cpibcr/${dir} COMPONENT dev)
endforeach()
install(TARGETS cpibcr_hostlib EXPORT cpibcrTargets
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev)
# The example host, so that the package alone is enough to start from; beside it the
# licence and the changelog that every Debian package carries (made by packaging.cmake).
set(cpibcr_dev_docdir ${CMAKE_INSTALL_DATAROOTDIR}/doc/cpibcr-dev)
install(FILES examples/poshost/CMakeLists.txt examples/poshost/main.cpp
  DESTINATION ${cpibcr_dev_docdir}/examples/poshost COMPONENT dev)
install(FILES packaging/copyright ${CMAKE_BINARY_DIR}/packaging/changelog.gz
  DESTINATION ${cpibcr_dev_docdir} COMPONENT dev)

# Where the runtime package puts the plug-in, relative to the prefix; the package
# configuration hands it to hosts as cpibcr_PLUGIN.
if(NOT DEFINED CPIBCR_PLUGIN_INSTALL_DIR)
  set(CPIBCR_PLUGIN_INSTALL_DIR lib/cpibcr/plugins)
endif()
set(cpibcr_cmake_dir ${CMAKE_INSTALL_LIBDIR}/cmake/cpibcr)
install(EXPORT cpibcrTargets NAMESPACE cpibcr:: DESTINATION ${cpibcr_cmake_dir} COMPONENT dev)
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/cpibcrConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/cpibcrConfig.cmake
  INSTALL_DESTINATION ${cpibcr_cmake_dir}
  PATH_VARS CPIBCR_PLUGIN_INSTALL_DIR)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/cpibcrConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/cpibcrConfig.cmake ${CMAKE_CURRENT_BINARY_DIR}/cpibcrConfigVersion.cmake
  DESTINATION ${cpibcr_cmake_dir} COMPONENT dev)

# Inside this build the example uses the plug-in of the build tree.
if(TARGET cpibcr_plugin)
  set(cpibcr_PLUGIN $<TARGET_FILE:cpibcr_plugin>)
endif()

# The Debian package of the component, made by the same CPack run as the runtime package.
set(CPACK_DEBIAN_DEV_PACKAGE_NAME cpibcr-dev)
set(CPACK_DEBIAN_DEV_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "qtbase5-dev, libqt5serialport5-dev, liblog4cxx-dev")
set(CPACK_COMPONENT_DEV_DEPENDS runtime)
# CPack puts the project's one-line summary in front of this text.
set(CPACK_COMPONENT_DEV_DESCRIPTION
  "Development files for a POS host that loads the driver: headers of the
 cash-control interface and its shared types, the serial port interface with
 its QSerialPort implementation, the host timer and the log set-up, the static
 library cpibcr-host with their code, and a CMake package: find_package(cpibcr)
 gives the target cpibcr::host and the plug-in's path.")
