# What every target of ours is compiled with: warnings as errors, hardening, and the sanitizer of the preset.
add_library(lumenar_options INTERFACE)

target_compile_options(lumenar_options INTERFACE
  -Wall -Wextra -Wpedantic -Werror
  -Wconversion -Wsign-conversion -Wshadow -Wundef -Wcast-align -Wformat=2
  -Wnon-virtual-dtor -Woverloaded-virtual -Wextra-semi -Wmissing-declarations -Wimplicit-fallthrough
  -fstack-protector-strong -ffunction-sections -fdata-sections -fno-omit-frame-pointer)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  target_compile_options(lumenar_options INTERFACE -Wduplicated-cond -Wduplicated-branches -Wlogical-op)
endif()
target_compile_definitions(lumenar_options INTERFACE _GLIBCXX_ASSERTIONS)

if(LUMENAR_SANITIZER STREQUAL "address")
  set(sanitizers -fsanitize=address,undefined -fno-sanitize-recover=all)
elseif(LUMENAR_SANITIZER STREQUAL "thread")
  set(sanitizers -fsanitize=thread)
elseif(NOT LUMENAR_SANITIZER STREQUAL "")
  message(FATAL_ERROR "LUMENAR_SANITIZER is address, thread or empty, not '${LUMENAR_SANITIZER}'")
endif()
if(sanitizers)
  # For GoogleTest too: all code in one process must agree.
  add_compile_options(${sanitizers})
  # The tests start processes by the thousand: one at a fixed address starts in less time.
  add_link_options(${sanitizers} -no-pie)
else()
  target_compile_definitions(lumenar_options INTERFACE $<$<CONFIG:RelWithDebInfo>:_FORTIFY_SOURCE=2>)
endif()

target_link_options(lumenar_options INTERFACE -Wl,--gc-sections)
if(WIN32)
  # One self-contained file: the compiler's runtime is linked in, only system DLLs stay imported. What checks stacks and
  # buffers is a library of its own here, which the option brings in. Threads may have the stack that they have on Linux.
  target_link_options(lumenar_options INTERFACE -static -fstack-protector-strong -Wl,--stack,8388608
    -Wl,--dynamicbase,--nxcompat,--high-entropy-va)
  target_compile_definitions(lumenar_options INTERFACE UNICODE _UNICODE NOMINMAX WIN32_LEAN_AND_MEAN _WIN32_WINNT=0x0A00)
endif()

# lumenar_deep_recursion(SOURCE ...)
#
# For files whose matching of expressions calls itself deeper than the thread sanitizer can record (65,536 calls): they go
# without it there. Everything else about them is checked as in any other file.
function(lumenar_deep_recursion)
  if(LUMENAR_SANITIZER STREQUAL "thread")
    set_source_files_properties(${ARGN} PROPERTIES COMPILE_OPTIONS -fno-sanitize=thread SKIP_PRECOMPILE_HEADERS ON)
  endif()
endfunction()
