include(${CMAKE_CURRENT_LIST_DIR}/Layering.cmake)

# brassline_library(NAME SOURCES... LINKS ...): one static library per subsystem.
function(brassline_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LINKS;PRIVATE_LINKS" ${ARGN})
  add_library(brassline_${name} STATIC ${ARG_SOURCES})
  set_property(GLOBAL APPEND PROPERTY BRASSLINE_LIBRARIES ${name})
  target_include_directories(brassline_${name} PUBLIC ${CMAKE_SOURCE_DIR}/src)
  target_link_libraries(brassline_${name} PUBLIC ${ARG_LINKS} PRIVATE ${ARG_PRIVATE_LINKS})
  target_compile_definitions(brassline_${name} PRIVATE
    BRASSLINE_RESOURCES_DIR="${BRASSLINE_RESOURCES_DIR}")
endfunction()

# brassline_test(SUBSYSTEM SOURCES...): one GoogleTest executable per subsystem, built in
# unity batches, registered with CTest.
function(brassline_test subsystem)
  cmake_parse_arguments(ARG "" "" "SOURCES;LINKS" ${ARGN})
  set(target brassline_${subsystem}_tests)
  add_executable(${target} ${ARG_SOURCES} ${CMAKE_SOURCE_DIR}/tests/support/TestProcess.cpp)
  set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE 8)
  # Its own translation unit: its static object must not share a batch's anonymous namespace.
  set_source_files_properties(${CMAKE_SOURCE_DIR}/tests/support/TestProcess.cpp PROPERTIES SKIP_UNITY_BUILD_INCLUSION ON)
  # Above the core every test starts from the process state reset once, in one place.
  if(NOT subsystem STREQUAL "core")
    target_sources(${target} PRIVATE ${CMAKE_SOURCE_DIR}/tests/support/ProcessReset.cpp)
    set_source_files_properties(${CMAKE_SOURCE_DIR}/tests/support/ProcessReset.cpp PROPERTIES SKIP_UNITY_BUILD_INCLUSION ON)
  endif()
  target_link_libraries(${target} PRIVATE brassline_${subsystem} ${ARG_LINKS} GTest::gtest GTest::gtest_main GTest::gmock)
  target_compile_definitions(${target} PRIVATE
    BRASSLINE_SOURCE_DIR="${CMAKE_SOURCE_DIR}"
    BRASSLINE_SHARED_DIR="${BRASSLINE_SHARED_DIR}"
    BRASSLINE_RESOURCES_DIR="${BRASSLINE_RESOURCES_DIR}")
  include(GoogleTest)
  # The label names the executable's subsystem, so that a build of some test executables
  # (the sanitizer builds) runs just theirs: ctest -L.
  gtest_discover_tests(${target} WORKING_DIRECTORY ${CMAKE_SOURCE_DIR} DISCOVERY_TIMEOUT 60
                       PROPERTIES LABELS ${subsystem})
endfunction()
