# lumenar_library(NAME FOLDER DIR [SOURCES ...] HEADERS ... [LINKS ...] [PRIVATE_LINKS ...])
#
# A library of ours. Its public HEADERS, and no others, are visible to the targets that link it, as "DIR/header.h":
# each target has an include folder of its own that holds links to just those files. So an include of a folder that the
# target does not link does not build.
function(lumenar_library NAME)
  cmake_parse_arguments(PARSE_ARGV 1 ARG "" "FOLDER" "SOURCES;HEADERS;LINKS;PRIVATE_LINKS")
  set(include "${CMAKE_BINARY_DIR}/include/${NAME}")
  file(REMOVE_RECURSE "${include}")  # What is public no longer goes.
  foreach(header IN LISTS ARG_HEADERS)
    cmake_path(GET header PARENT_PATH below)
    file(MAKE_DIRECTORY "${include}/${ARG_FOLDER}/${below}")
    file(CREATE_LINK "${CMAKE_CURRENT_SOURCE_DIR}/${header}" "${include}/${ARG_FOLDER}/${header}" SYMBOLIC)
  endforeach()
  if(ARG_SOURCES)
    add_library(${NAME} STATIC ${ARG_SOURCES})
    target_include_directories(${NAME} PUBLIC "${include}")
    target_link_libraries(${NAME} PUBLIC ${ARG_LINKS} PRIVATE lumenar_options ${ARG_PRIVATE_LINKS})
  else()
    add_library(${NAME} INTERFACE)
    target_include_directories(${NAME} INTERFACE "${include}")
    target_link_libraries(${NAME} INTERFACE ${ARG_LINKS})
  endif()
endfunction()
