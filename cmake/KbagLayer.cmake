# kbag_layer(<name> [USES <layers>...] [PRIVATE_LINKS <targets>...] SOURCES <files>...)
#
# One layer of the project as a library kbag::<name>. USES names the layers below it that its headers
# include; PRIVATE_LINKS names third-party targets that no header of the layer shows.
function(kbag_layer name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "USES;PRIVATE_LINKS;SOURCES")
  add_library(morva_${name} STATIC ${arg_SOURCES})
  add_library(kbag::${name} ALIAS morva_${name})
  list(TRANSFORM arg_USES PREPEND kbag::)
  target_include_directories(morva_${name} PUBLIC
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
    $<BUILD_INTERFACE:${PROJECT_BINARY_DIR}/include>  # morva/version.h
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/src>)
  target_link_libraries(morva_${name}
    PUBLIC ${arg_USES}
    PRIVATE ${arg_PRIVATE_LINKS} $<BUILD_INTERFACE:kbag_options>)
  set_target_properties(morva_${name} PROPERTIES EXPORT_NAME ${name})
endfunction()
