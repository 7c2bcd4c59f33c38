# A room of the house: one target whose sources see the headers of the targets it declares, and no
# others. Headers are staged by symbolic link under include_roots/<target>/<folder>/, and these
# roots are the only include directories; nothing is inherited, so what is used must be named.
#
#   add_room(<target> FOLDER <folder> [HEADERS ...] [SOURCES ...] [USES <target> ...]
#            [OBJECTS] [FREE] [TOP])
#
# OBJECTS makes an object library (platform implementations: link order never matters).
# TOP is for the one room that defines what the stub wiring stands in for elsewhere.
# FREE is for what surrounds the daemon (server, tools): exceptions and RTTI are allowed there.
# Every header is compiled alone, twice over. Every room of the daemon is also linked whole with
# nothing but its declared targets (and theirs), the fake platform and the stub wiring: an upward call
# that hides behind a forward declaration does not link.

function(room_include_root out target)
  set(${out} ${CMAKE_BINARY_DIR}/include_roots/${target} PARENT_SCOPE)
endfunction()

function(room_sees target)  # room_sees(<target> <used target> ...): include roots only
  foreach(used IN LISTS ARGN)
    room_include_root(root ${used})
    target_include_directories(${target} PRIVATE ${root})
  endforeach()
endfunction()

function(add_room target)
  cmake_parse_arguments(ROOM "OBJECTS;FREE;TOP" "FOLDER" "HEADERS;SOURCES;USES" ${ARGN})
  room_include_root(root ${target})
  file(REMOVE_RECURSE ${root}) # a header that is no longer listed is no longer seen
  foreach(header IN LISTS ROOM_HEADERS)
    get_filename_component(folder ${root}/${ROOM_FOLDER}/${header} DIRECTORY)
    file(MAKE_DIRECTORY ${folder})
    file(CREATE_LINK ${CMAKE_SOURCE_DIR}/${ROOM_FOLDER}/${header}
         ${root}/${ROOM_FOLDER}/${header} SYMBOLIC)
  endforeach()
  if(ROOM_FREE)
    set(flags house_free)
  else()
    set(flags house_daemon)
  endif()

  # What the room declared, for who must know all rooms below one.
  set_property(GLOBAL PROPERTY HOUSE_USES_${target} "${ROOM_USES}")

  if(ROOM_OBJECTS)
    add_library(${target} OBJECT ${ROOM_SOURCES})
  elseif(ROOM_SOURCES)
    add_library(${target} STATIC ${ROOM_SOURCES})
  else()
    add_library(${target} INTERFACE)
  endif()
  if(ROOM_SOURCES)
    target_link_libraries(${target} PRIVATE ${flags})
    room_sees(${target} ${target} ${ROOM_USES})
    if(NOT ROOM_OBJECTS)
      target_link_libraries(${target} INTERFACE ${ROOM_USES})
    endif()
  endif()
  # The plain build's checks hold for the sanitized one as well.
  if(ROOM_HEADERS AND NOT RCMD_DAEMON_ONLY AND NOT RCMD_SANITIZED)
    room_check_headers(${target} ${flags} "${ROOM_FOLDER}" "${ROOM_HEADERS}" "${ROOM_USES}")
  endif()
  if(ROOM_SOURCES AND NOT ROOM_OBJECTS AND NOT ROOM_FREE AND NOT ROOM_TOP AND NOT RCMD_DAEMON_ONLY
     AND NOT RCMD_SANITIZED)
    room_check_link(${target})
  endif()
endfunction()

function(room_check_headers target flags folder headers uses)
  set(sources)
  foreach(header IN LISTS headers)
    string(MAKE_C_IDENTIFIER ${header} name)
    set(source ${CMAKE_BINARY_DIR}/header_check/${target}/${name}.cpp)
    file(CONFIGURE OUTPUT ${source}
         CONTENT "#include \"${folder}/${header}\"\n#include \"${folder}/${header}\" // twice\n")
    list(APPEND sources ${source})
  endforeach()
  add_library(header_check_${target} OBJECT ${sources})
  target_link_libraries(header_check_${target} PRIVATE ${flags})
  room_sees(header_check_${target} ${target} ${uses})
endfunction()

function(room_check_link target)
  add_executable(link_check_${target} ${CMAKE_SOURCE_DIR}/tests/house/empty_main.cpp)
  set_target_properties(link_check_${target} PROPERTIES
    RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/link_check)
  target_link_libraries(link_check_${target} PRIVATE
    -Wl,--whole-archive ${target} -Wl,--no-whole-archive stub_wiring fake_platform)
endfunction()
