# kbag_test(<layer> [LINKS <targets>...] [LABEL <label>] SOURCES <files>...)
#
# One test program per layer folder; its tests are named "<layer>.<Suite>.<Test>".
find_package(GTest REQUIRED)
include(GoogleTest)
find_package(Python3 REQUIRED COMPONENTS Interpreter)
set_target_properties(Python3::Interpreter PROPERTIES CROSSCOMPILING_EMULATOR "")  # it runs here

function(kbag_test layer)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "LABEL;TIMEOUT" "LINKS;SOURCES")
  if(NOT arg_LABEL)
    set(arg_LABEL unit)
  endif()
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT 60)
  endif()
  set(target test_${layer})
  if(NOT arg_LABEL STREQUAL "unit")
    set(target test_${layer}_${arg_LABEL})
  endif()
  add_executable(${target} ${arg_SOURCES})
  target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR}/tests)
  target_link_libraries(${target} PRIVATE ${arg_LINKS} GTest::gmock GTest::gtest_main kbag_options)
  gtest_discover_tests(${target} TEST_PREFIX "${layer}." DISCOVERY_TIMEOUT 60 NO_PRETTY_VALUES
    PROPERTIES LABELS ${arg_LABEL} TIMEOUT ${arg_TIMEOUT})
endfunction()

# kbag_test_command(<target>): sets <target>_command to what starts a program of the build from outside of it. Where
# the build is for another machine, that is a script that has the emulator run the program.
function(kbag_test_command target)
  set(${target}_command $<TARGET_FILE:${target}>)
  if(CMAKE_CROSSCOMPILING)
    set(${target}_command ${PROJECT_BINARY_DIR}/run/${target})
    list(JOIN CMAKE_CROSSCOMPILING_EMULATOR " " emulator)
    file(GENERATE OUTPUT ${${target}_command}
      CONTENT "#!/bin/sh\nexec ${emulator} -0 ${target} $<TARGET_FILE:${target}> \"$@\"\n"
      FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE)
  endif()
  set(${target}_command ${${target}_command} PARENT_SCOPE)
endfunction()
