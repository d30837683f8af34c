# Debian packages by `cpack -G DEB`, one for each component of the installation (./dev package).
set(maintainer "kbag developers <kbag@localhost>")
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME kbag)
set(CPACK_PACKAGE_VENDOR kbag)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # each component begins with its own
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "${maintainer}")
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL tools library pictures development)
if(kbag_has_site)
  list(APPEND CPACK_COMPONENTS_ALL documentation)
endif()
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "${maintainer}")
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY "=")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(soname_package libkbag${PROJECT_VERSION_MAJOR})
set(exact "(= ${PROJECT_VERSION})")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME kbag)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOLS_PACKAGE_RECOMMENDS "libkbag-pictures ${exact}")
set(CPACK_COMPONENT_TOOLS_DESCRIPTION "inspect, verify and convert bag files of a scanning device
kbag shows what a bag file holds, verifies every byte of it, rebuilds a lost
index, and turns its topics into tables, point clouds, video streams, pictures
and files. kbagkit lists recordings for scripts, examines and salvages damaged
ones, unpacks many of them at a time, and makes recordings of a simulated
scanner whose truth is known.")

set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME ${soname_package})
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SUGGESTS "libkbag-pictures ${exact}")
set(CPACK_COMPONENT_LIBRARY_DESCRIPTION "record, read and convert bag files - shared library
The library behind the kbag tools: a handle that records and reads bag files,
the export of topics to files, and tasks that unpack project folders in the
background.")

# The module and its users agree on an interface that is theirs alone: all of one version.
set(CPACK_DEBIAN_PICTURES_PACKAGE_NAME libkbag-pictures)
set(CPACK_DEBIAN_PICTURES_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PICTURES_PACKAGE_BREAKS
  "kbag (<< ${PROJECT_VERSION}), kbag (>> ${PROJECT_VERSION}), ${soname_package} (<< ${PROJECT_VERSION}), ${soname_package} (>> ${PROJECT_VERSION})")
set(CPACK_COMPONENT_PICTURES_DESCRIPTION "record, read and convert bag files - picture module
What the kbag tools and library load when they decode the pictures of a
recording's cameras. It is apart because of the large libraries that it needs;
without it all else works.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libkbag-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${soname_package} ${exact}")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "record, read and convert bag files - development files
Headers, CMake package and pkg-config file for programs that record, read or
export bag files with the kbag library, and the protobuf schema of the stored
messages.")

set(CPACK_DEBIAN_DOCUMENTATION_PACKAGE_NAME kbag-doc)
set(CPACK_DEBIAN_DOCUMENTATION_PACKAGE_SECTION doc)
set(CPACK_DEBIAN_DOCUMENTATION_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_DOCUMENTATION_PACKAGE_SHLIBDEPS OFF)
set(CPACK_COMPONENT_DOCUMENTATION_DESCRIPTION "inspect, verify and convert bag files - documentation
The manual of the kbag tools and the reference of their library, as pages that
open from the file system: a five-minute start, every command, output file and
column, the file format, the C++ interface, what is promised and measured.")

# Every package brings its copyright and its change log.
string(TIMESTAMP changelog_date "%a, %d %b %Y %H:%M:%S +0000" UTC)  # or as SOURCE_DATE_EPOCH says
foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  string(TOUPPER ${component} upper)
  set(package ${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
  set(doc_dir ${PROJECT_BINARY_DIR}/packaging/${package})
  configure_file(${PROJECT_SOURCE_DIR}/packaging/changelog.in ${doc_dir}/changelog @ONLY)
  set(copyright ${PROJECT_SOURCE_DIR}/packaging/copyright)
  if(component STREQUAL "documentation")
    # With that of what makes the pages move.
    set(copyright ${doc_dir}/copyright)
    file(READ ${PROJECT_SOURCE_DIR}/packaging/copyright ours)
    file(READ ${PROJECT_SOURCE_DIR}/packaging/copyright.site theirs)
    file(CONFIGURE OUTPUT ${copyright} CONTENT "@ours@\n@theirs@" @ONLY)
  endif()
  install(FILES ${copyright}
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package} COMPONENT ${component} EXCLUDE_FROM_ALL)
  if(KBAG_GZIP)
    execute_process(COMMAND ${KBAG_GZIP} -9nkf ${doc_dir}/changelog COMMAND_ERROR_IS_FATAL ANY)
    install(FILES ${doc_dir}/changelog.gz
      DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package} COMPONENT ${component} EXCLUDE_FROM_ALL)
  endif()
endforeach()

include(CPack)
