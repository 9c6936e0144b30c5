# jsoncpp from the distribution's sources, which scripts/setup brings: linked in on both targets, for the program is one
# self-contained file.
set(jsoncpp_source "${PROJECT_SOURCE_DIR}/build/sources/jsoncpp-1.9.5")
if(NOT EXISTS "${jsoncpp_source}/src/lib_json/json_value.cpp")
  message(FATAL_ERROR "The sources of jsoncpp are missing; run scripts/setup")
endif()
add_library(jsoncpp STATIC
  ${jsoncpp_source}/src/lib_json/json_reader.cpp
  ${jsoncpp_source}/src/lib_json/json_value.cpp
  ${jsoncpp_source}/src/lib_json/json_writer.cpp)
target_include_directories(jsoncpp SYSTEM PUBLIC "${jsoncpp_source}/include")
# Its <iostream> is ours: see there.
target_include_directories(jsoncpp BEFORE PRIVATE "${CMAKE_CURRENT_LIST_DIR}/jsoncpp")
target_compile_options(jsoncpp PRIVATE -w -g1 -ffunction-sections -fdata-sections)
