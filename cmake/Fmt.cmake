# fmt from the distribution's sources, which scripts/setup brings: linked in on both targets, as jsoncpp is.
set(fmt_source "${PROJECT_SOURCE_DIR}/build/sources/fmt-10.1.1")
if(NOT EXISTS "${fmt_source}/src/format.cc")
  message(FATAL_ERROR "The sources of fmt are missing; run scripts/setup")
endif()
add_library(fmt STATIC ${fmt_source}/src/format.cc)
target_include_directories(fmt SYSTEM PUBLIC "${fmt_source}/include")
target_compile_options(fmt PRIVATE -w -g1 -ffunction-sections -fdata-sections)
