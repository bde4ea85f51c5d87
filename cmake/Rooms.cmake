# One library a room. A room's include directory is its own; it sees another room only through a link
# line, so an include against the direction of the arrows does not build. A link line is PUBLIC only for a room
# whose headers stand in this room's headers. scripts/test-arrows knows the arrows.

set(KORVANDIS_WARNINGS
    -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow -Wold-style-cast -Wcast-qual
    -Wnon-virtual-dtor -Woverloaded-virtual -Wformat=2 -Werror)

add_library(korvandis_options INTERFACE)
target_compile_options(korvandis_options INTERFACE ${KORVANDIS_WARNINGS})
if(KORVANDIS_SANITIZE)
  # Instrumented, the library's regular expressions look uninitialised to GCC, and it tells of each
  # fence (the log ring's, between processes) that ThreadSanitizer does not follow it.
  target_compile_options(korvandis_options INTERFACE
                         "$<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized;-Wno-tsan>")
  target_compile_options(korvandis_options INTERFACE -fsanitize=${KORVANDIS_SANITIZE}
                         -fno-omit-frame-pointer -fno-sanitize-recover=all)
  target_link_options(korvandis_options INTERFACE -fsanitize=${KORVANDIS_SANITIZE})
  # To look at a type it opens a pipe, and ends a program that has no descriptors left for one.
  target_compile_options(korvandis_options INTERFACE -fno-sanitize=vptr)
endif()
if(KORVANDIS_FUZZ)
  target_compile_options(korvandis_options INTERFACE -fsanitize=fuzzer-no-link)
endif()
target_link_libraries(korvandis_options INTERFACE Threads::Threads)

# Every target gets the warnings and exactly the language standard of its room, without extensions.
function(korvandis_target name standard)
  set_target_properties(${name} PROPERTIES CXX_STANDARD ${standard} CXX_STANDARD_REQUIRED ON
                                           CXX_EXTENSIONS OFF)
  target_link_libraries(${name} PRIVATE korvandis_options)
endfunction()

# korvandis_room(NAME STANDARD DIRECTORY source...): the room's static library.
function(korvandis_room name standard directory)
  add_library(${name} STATIC ${ARGN})
  target_include_directories(${name} PUBLIC ${directory})
  korvandis_target(${name} ${standard})
endfunction()

# korvandis_program(NAME STANDARD source...): a program that is installed.
function(korvandis_program name standard)
  add_executable(${name} ${ARGN})
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
  korvandis_target(${name} ${standard})
  if(KORVANDIS_STATIC AND NOT KORVANDIS_SANITIZE)
    target_link_options(${name} PRIVATE -static-libstdc++ -static-libgcc)
  endif()
  install(TARGETS ${name} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endfunction()
