# add_project_test(<name> SOURCES <files...> [LIBS <targets...>] [TIMEOUT <s>])
#
# One GoogleTest executable; each of its tests becomes a CTest entry with a
# timeout, so a deadlock fails the run instead of hanging it.
find_package(GTest REQUIRED)
include(GoogleTest)

function(add_project_test name)
  cmake_parse_arguments(ARG "" "TIMEOUT" "SOURCES;LIBS" ${ARGN})
  if(NOT ARG_TIMEOUT)
    set(ARG_TIMEOUT 120)
  endif()
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ${ARG_LIBS} GTest::gmock GTest::gtest_main Threads::Threads)
  gtest_discover_tests(${name}
    DISCOVERY_MODE PRE_TEST
    WORKING_DIRECTORY ${CMAKE_BINARY_DIR}
    PROPERTIES TIMEOUT ${ARG_TIMEOUT})
endfunction()
