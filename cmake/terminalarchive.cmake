# The terminal artifact: cpibcr-terminal-<version>-i386.tar.gz, made by every build of the Qt 4
# flavour. It holds the stripped plug-in to drop into the host's plug-in folder, the install
# note, the host's contract (HOST.md), the licence, and what a host builds against: the
# interface headers, the shared cash-control types' sources and the example Qt 4 host with its
# qmake project.
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
  set(cpibcr_terminal_arch i386)
else()
  set(cpibcr_terminal_arch amd64)
endif()
set(cpibcr_terminal_name cpibcr-terminal-${PROJECT_VERSION}-${cpibcr_terminal_arch})
set(cpibcr_terminal_dir ${CMAKE_BINARY_DIR}/terminal/${cpibcr_terminal_name})
set(cpibcr_terminal_archive ${CMAKE_BINARY_DIR}/${cpibcr_terminal_name}.tar.gz)
set(cpibcr_terminal_sources
  cashcontrol/abstractcashcontrol.h cashcontrol/cashcontrolexc.h cashcontrol/cashcontrolunit.h
  cashcontrol/ccunitmaintenanceinfo.h cashcontrol/ecashcontrol.h cashcontrol/ecashcontrol.cpp
  cashcontrol/sumdetailed.h cashcontrol/sumdetailed.cpp cashcontrol/units.h
  host/abstractserialdevice.h host/interfaceids.h host/qtcompat.h
  examples/qt4host/main.cpp examples/qt4host/termiosport.h examples/qt4host/termiosport.cpp
  examples/qt4host/qt4host.pro)
set(cpibcr_terminal_copy)
set(cpibcr_terminal_inputs)
foreach(source IN LISTS cpibcr_terminal_sources)
  get_filename_component(dir ${source} DIRECTORY)
  list(APPEND cpibcr_terminal_inputs ${PROJECT_SOURCE_DIR}/${source})
  list(APPEND cpibcr_terminal_copy
    COMMAND ${CMAKE_COMMAND} -E make_directory ${cpibcr_terminal_dir}/src/${dir}
    COMMAND ${CMAKE_COMMAND} -E copy ${PROJECT_SOURCE_DIR}/${source} ${cpibcr_terminal_dir}/src/${dir}/)
endforeach()
file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/terminal)
# The host has loaded QtCore and Log4Qt before it loads the plug-in. A run path of the build
# machine would only let a folder of that machine, or with an empty entry the host's working
# directory, supply libraries of those names in their place.
set_target_properties(cpibcr_plugin PROPERTIES SKIP_BUILD_RPATH ON)
find_program(CPIBCR_STRIP strip REQUIRED)
add_custom_command(OUTPUT ${cpibcr_terminal_archive}
  COMMAND ${CMAKE_COMMAND} -E rm -rf ${cpibcr_terminal_dir}
  COMMAND ${CMAKE_COMMAND} -E make_directory ${cpibcr_terminal_dir}/plugins
  COMMAND ${CPIBCR_STRIP} --strip-unneeded -o ${cpibcr_terminal_dir}/plugins/libcpibcr.so
          $<TARGET_FILE:cpibcr_plugin>
  COMMAND ${CMAKE_COMMAND} -E copy ${PROJECT_SOURCE_DIR}/docs/terminal-install.md ${cpibcr_terminal_dir}/INSTALL.md
  COMMAND ${CMAKE_COMMAND} -E copy ${PROJECT_SOURCE_DIR}/docs/terminal-host.md ${cpibcr_terminal_dir}/HOST.md
  COMMAND ${CMAKE_COMMAND} -E copy ${PROJECT_SOURCE_DIR}/LICENSE ${cpibcr_terminal_dir}/LICENSE
  ${cpibcr_terminal_copy}
  COMMAND ${CMAKE_COMMAND} -E tar czf ${cpibcr_terminal_archive} ${cpibcr_terminal_name}
  WORKING_DIRECTORY ${CMAKE_BINARY_DIR}/terminal
  DEPENDS cpibcr_plugin ${PROJECT_SOURCE_DIR}/docs/terminal-install.md ${PROJECT_SOURCE_DIR}/docs/terminal-host.md
          ${cpibcr_terminal_inputs}
  VERBATIM)
add_custom_target(terminal_archive ALL DEPENDS ${cpibcr_terminal_archive})
