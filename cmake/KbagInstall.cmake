# The shared library, and what `cmake --install` puts where. Components: tools, library, pictures,
# development, and documentation where its site was made. The installed tree can be moved: nothing in it
# names its prefix.
include(CMakePackageConfigHelpers)

# ---------------------------------------------------------------------------- the shared library
# Protobuf knows one message of a name in a process, and ends a process that brings two. A program that
# links the library may have compiled the published schema for itself, to decode payloads; so inside of
# the library the schema is registered under another name. Its classes keep theirs.
set(schema_dir ${PROJECT_BINARY_DIR}/shared_schema)
set(schema_file ${PROJECT_SOURCE_DIR}/src/messages/kbag_msgs.proto)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${schema_file})
file(READ ${schema_file} schema)
string(REPLACE "package protix.kbag_msgs;" "package protix.kbag_inside;" inside_schema "${schema}")
if(inside_schema STREQUAL schema)
  message(FATAL_ERROR "kbag_msgs.proto does not name its package as expected")
endif()
file(CONFIGURE OUTPUT ${schema_dir}/kbag_inside_msgs.proto CONTENT "${inside_schema}" @ONLY)
set(schema_sources ${schema_dir}/kbag_inside_msgs.pb.cc ${schema_dir}/kbag_inside_msgs.pb.h)
add_custom_command(OUTPUT ${schema_sources}
  COMMAND protobuf::protoc --cpp_out=${schema_dir} -I ${schema_dir} ${schema_dir}/kbag_inside_msgs.proto
  DEPENDS ${schema_dir}/kbag_inside_msgs.proto VERBATIM)
add_library(kbag_shared_schema OBJECT ${schema_sources})
target_include_directories(kbag_shared_schema SYSTEM PRIVATE ${schema_dir})
target_compile_definitions(kbag_shared_schema PRIVATE kbag_inside=kbag_msgs)
target_link_libraries(kbag_shared_schema PRIVATE protobuf::libprotobuf)

# The objects of the static layers, which tools and tests go on linking, once more as one library. What
# it shows is listed in libkbag.map.
add_library(kbag_shared SHARED $<TARGET_OBJECTS:kbag_shared_schema>)
foreach(layer IN ITEMS platform messages storage bag export task)
  target_sources(kbag_shared PRIVATE $<TARGET_OBJECTS:morva_${layer}>)
  target_link_libraries(kbag_shared PRIVATE morva_${layer})  # for the libraries that it needs
endforeach()
set(kbag_map ${PROJECT_SOURCE_DIR}/cmake/libkbag.map)
target_link_options(kbag_shared PRIVATE
  LINKER:--version-script=${kbag_map} LINKER:--as-needed LINKER:-z,defs)
target_include_directories(kbag_shared INTERFACE
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
  $<BUILD_INTERFACE:${PROJECT_BINARY_DIR}/include>
  $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
target_compile_features(kbag_shared INTERFACE cxx_std_17)
set_target_properties(kbag_shared PROPERTIES
  OUTPUT_NAME kbag EXPORT_NAME kbag LINKER_LANGUAGE CXX LINK_DEPENDS ${kbag_map}
  VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}
  LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib)  # beside kbag/kbag_pictures.so

# What find_package(kbag COMPONENTS ...) knows. One library serves them all.
set(kbag_components bag export task)
foreach(component IN LISTS kbag_components)
  add_library(kbag_installed_${component} INTERFACE)
  target_link_libraries(kbag_installed_${component} INTERFACE kbag_shared)
  set_target_properties(kbag_installed_${component} PROPERTIES EXPORT_NAME ${component})
  install(TARGETS kbag_installed_${component} EXPORT kbagTargets)
endforeach()

# --------------------------------------------------------------------------------------- programs
install(TARGETS kbag kbagkit RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
install(TARGETS kbag_pictures LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/kbag COMPONENT pictures)
install(TARGETS kbag_shared EXPORT kbagTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library NAMELINK_COMPONENT development)

# ---------------------------------------------------------------------------------- documentation
set(KBAG_SITE "" CACHE PATH "Folder of the documentation site, made by scripts/make_site.py; empty: it is not installed")
set(kbag_has_site NO)
if(KBAG_SITE AND EXISTS ${KBAG_SITE}/index.html)
  set(kbag_has_site YES)
  install(DIRECTORY ${KBAG_SITE}/ DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/kbag/html COMPONENT documentation)
endif()

# ------------------------------------------------------------------------------------ development
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/morva ${PROJECT_BINARY_DIR}/include/morva
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development FILES_MATCHING PATTERN "*.h")
install(FILES ${PROJECT_SOURCE_DIR}/src/messages/kbag_msgs.proto
  DESTINATION ${CMAKE_INSTALL_DATADIR}/kbag COMPONENT development)

set(config_dir ${CMAKE_INSTALL_LIBDIR}/cmake/kbag)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/kbagConfig.cmake.in
  ${PROJECT_BINARY_DIR}/cmake/kbagConfig.cmake INSTALL_DESTINATION ${config_dir}
  PATH_VARS CMAKE_INSTALL_DATADIR)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/cmake/kbagConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/cmake/kbagConfig.cmake
  ${PROJECT_BINARY_DIR}/cmake/kbagConfigVersion.cmake
  DESTINATION ${config_dir} COMPONENT development)
install(EXPORT kbagTargets NAMESPACE kbag:: DESTINATION ${config_dir} COMPONENT development)

set(pkgconfig_dir ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH pc_prefix ${pkgconfig_dir} ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" pc_prefix "${pc_prefix}")
file(RELATIVE_PATH pc_libdir ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_LIBDIR})
file(RELATIVE_PATH pc_includedir ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_INCLUDEDIR})
file(RELATIVE_PATH pc_datadir ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_DATADIR})
configure_file(${PROJECT_SOURCE_DIR}/cmake/kbag.pc.in ${PROJECT_BINARY_DIR}/cmake/kbag.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/cmake/kbag.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
