# lumenar_program(NAME LIBRARY PLATFORM)
#
# The program itself, from LIBRARY, over PLATFORM (the product's or the tests' build of the platform layer).
function(lumenar_program NAME LIBRARY PLATFORM)
  add_executable(${NAME})
  set_target_properties(${NAME} PROPERTIES RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}")
  target_link_libraries(${NAME} PRIVATE lumenar_options ${LIBRARY} ${PLATFORM} platform_entry)
  if(WIN32)
    set(resources "${PROJECT_SOURCE_DIR}/launcher/resources")
    target_sources(${NAME} PRIVATE "${resources}/helper.rc")
    set_source_files_properties("${resources}/helper.rc" PROPERTIES OBJECT_DEPENDS "${resources}/helper.manifest")
    target_link_options(${NAME} PRIVATE -mwindows -municode)
    lumenar_split_debug(${NAME})
  elseif(NOT LUMENAR_SANITIZER)
    # A launcher lives for a millisecond: the dynamic linker would take longer than all of its own work, and each piece of
    # the file that is mapped for itself is some ten microseconds of it, so what is only read lies with the code.
    target_link_options(${NAME} PRIVATE -static -Wl,-z,noseparate-code)
    lumenar_split_debug(${NAME})
  endif()
endfunction()

# Moves the debug information of an executable into NAME.debug beside it; the executable keeps a link to it.
function(lumenar_split_debug NAME)
  set(program $<TARGET_FILE:${NAME}>)
  add_custom_command(TARGET ${NAME} POST_BUILD
    COMMAND ${CMAKE_OBJCOPY} --only-keep-debug ${program} ${program}.debug
    COMMAND ${CMAKE_OBJCOPY} --strip-all --add-gnu-debuglink=${program}.debug ${program}
    VERBATIM)
endfunction()
