# The server's stub of the interface by which a client sets up a link, as the interface compiler makes it.
find_program(WIDL x86_64-w64-mingw32-widl REQUIRED)
enable_language(C)

set(stub "${CMAKE_BINARY_DIR}/tests/stub")
set(interface "${CMAKE_CURRENT_SOURCE_DIR}/support/linkService.idl")
add_custom_command(
  OUTPUT "${stub}/linkService.c" "${stub}/tests/support/linkService.h"
  COMMAND ${CMAKE_COMMAND} -E make_directory "${stub}/tests/support"
  COMMAND ${WIDL} --win64 -Os --oldnames -h -o "${stub}/tests/support/linkService.h" "${interface}"
  COMMAND ${WIDL} --win64 -Os --oldnames -s -o "${stub}/linkService.c" "${interface}"
  DEPENDS "${interface}"
  VERBATIM)
# Without the options of what we write ourselves.
add_library(link_service_stub STATIC "${stub}/linkService.c" "${stub}/tests/support/linkService.h")
target_compile_options(link_service_stub PRIVATE
  -w -include "${CMAKE_CURRENT_SOURCE_DIR}/support/stubWithoutExceptions.h")
target_include_directories(link_service_stub PRIVATE "${stub}/tests/support")
target_include_directories(link_service_stub SYSTEM INTERFACE "${stub}")
target_link_libraries(support PUBLIC link_service_stub rpcrt4)
add_dependencies(support link_service_stub)
