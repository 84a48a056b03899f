# zv_room(<name> [SEES <room>...]): one static library a room, from every source in src/<name>.
#
# A room's public include root is a folder that holds nothing but that room, so an include of a room that
# is not among those it sees (directly or through them) finds no file and does not compile.
function(zv_room name)
  cmake_parse_arguments(ROOM "" "" "SEES" ${ARGN})
  set(root "${CMAKE_BINARY_DIR}/rooms/${name}")
  file(MAKE_DIRECTORY "${root}")
  file(CREATE_LINK "${CMAKE_SOURCE_DIR}/src/${name}" "${root}/${name}" SYMBOLIC)
  file(GLOB sources CONFIGURE_DEPENDS "${CMAKE_SOURCE_DIR}/src/${name}/*.cpp")
  list(FILTER sources EXCLUDE REGEX "/main\\.cpp$")

  set(target zv_${name})
  set(reach PUBLIC)
  if(sources)
    add_library(${target} STATIC ${sources})
    zv_target(${target})
  else()
    set(reach INTERFACE)
    add_library(${target} INTERFACE)
  endif()
  target_include_directories(${target} ${reach} "${root}")
  foreach(lower IN LISTS ROOM_SEES)
    target_link_libraries(${target} ${reach} zv_${lower})
  endforeach()
endfunction()
