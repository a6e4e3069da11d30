# GoogleTest, found once for the suite in tests/ and for the test/ folder of
# each tool.
find_package(GTest REQUIRED)
include(GoogleTest)

# seg_add_test(<name> <source>... [LINK <target>...]): a GoogleTest program
# whose cases ctest runs one by one.
function(seg_add_test name)
  cmake_parse_arguments(PARSE_ARGV 1 ARG "" "" "LINK")
  add_executable(${name} ${ARG_UNPARSED_ARGUMENTS})
  target_link_libraries(${name} PRIVATE ${ARG_LINK} GTest::gtest GTest::gtest_main)
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60)
endfunction()
