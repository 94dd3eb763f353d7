# What the Debian package holds besides the programs, and the package itself:
#   cmake --build build --target package   ->   cpibcr_<version>_<arch>.deb, cpibcr-dev_<version>_<arch>.deb
#
# Every install() rule names a component. The runtime package "cpibcr" is the component
# "runtime"; another package is one more component added to CPACK_COMPONENTS_ALL with its
# CPACK_DEBIAN_<COMPONENT>_* settings.

set(cpibcr_docdir ${CMAKE_INSTALL_DATAROOTDIR}/doc/cpibcr)

install(FILES README.md DESTINATION ${cpibcr_docdir} COMPONENT runtime)
install(DIRECTORY docs/ DESTINATION ${cpibcr_docdir}/docs COMPONENT runtime
  FILES_MATCHING PATTERN "*.md" PATTERN "*.png" PATTERN "man" EXCLUDE)
install(FILES config/log4cxx.properties.example config/line-recorder.log4cxx.properties
  config/line-recorder.log4qt.properties packaging/99-cpibcr.rules
  DESTINATION ${cpibcr_docdir}/examples COMPONENT runtime)
# Debian keeps the licence as the package's copyright file.
install(FILES packaging/copyright DESTINATION ${cpibcr_docdir} COMPONENT runtime)

# Manual pages and the changelog go in compressed, reproducibly (no name, no time stamp).
find_program(CPIBCR_GZIP gzip REQUIRED)
configure_file(packaging/changelog.in ${CMAKE_BINARY_DIR}/packaging/changelog @ONLY)
set(cpibcr_compressed)
foreach(source IN ITEMS docs/man/cpibcr.1 docs/man/cpibcr-sim.1 docs/man/cpibcr-panel.1
                       ${CMAKE_BINARY_DIR}/packaging/changelog)
  get_filename_component(name ${source} NAME)
  get_filename_component(absolute ${source} ABSOLUTE)
  set(output ${CMAKE_BINARY_DIR}/packaging/${name}.gz)
  add_custom_command(OUTPUT ${output}
    COMMAND ${CPIBCR_GZIP} -9nc ${absolute} > ${output}
    DEPENDS ${absolute}
    VERBATIM)
  list(APPEND cpibcr_compressed ${output})
endforeach()
add_custom_target(cpibcr_compressed_docs ALL DEPENDS ${cpibcr_compressed})
install(FILES ${CMAKE_BINARY_DIR}/packaging/cpibcr.1.gz ${CMAKE_BINARY_DIR}/packaging/cpibcr-sim.1.gz
  ${CMAKE_BINARY_DIR}/packaging/cpibcr-panel.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT runtime)
install(FILES ${CMAKE_BINARY_DIR}/packaging/changelog.gz DESTINATION ${cpibcr_docdir} COMPONENT runtime)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME cpibcr)
set(CPACK_PACKAGE_VENDOR "cpibcr developers")
set(CPACK_PACKAGE_CONTACT "cpibcr developers <cpibcr@example.org>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "driver for the CPI BCR coin recycler over ccTalk")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime dev)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION misc)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS OFF)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME cpibcr)
set(CPACK_DEBIAN_RUNTIME_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION misc)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION
  "A Qt plug-in that lets a point-of-sale host application operate a CPI BCR
coin recycler (coin acceptor, payout hoppers, cashbox) over the ccTalk
serial protocol, with the host tool cpibcr to try, script and diagnose it,
the service panel cpibcr-panel, the device simulator cpibcr-sim, an
example log configuration and an
example udev rule for a USB-serial adapter.")

include(CPack)
