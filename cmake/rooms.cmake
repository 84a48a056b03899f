# zv_room(<path> [SEES <room>...] [USES <room>...]): one static library a room, from the sources in src/<path>.
#
# A room's include root is a folder that holds nothing but that room, so an include of a room that it does not see finds
# no file and does not compile. What a room SEES is passed on to those that see it: the ladder. What it USES, an edge
# beside the ladder, is its own affair. Both name rooms that are already there, so there are no rings.
function(zv_room path)
  cmake_parse_arguments(ROOM "" "" "SEES;USES" ${ARGN})
  zv_room_target(target "${path}")
  set(root "${CMAKE_BINARY_DIR}/rooms/${target}")
  get_filename_component(parent "${root}/${path}" DIRECTORY)
  file(MAKE_DIRECTORY "${parent}")
  file(CREATE_LINK "${CMAKE_SOURCE_DIR}/src/${path}" "${root}/${path}" SYMBOLIC)
  file(GLOB sources CONFIGURE_DEPENDS "${CMAKE_SOURCE_DIR}/src/${path}/*.cpp")
  list(FILTER sources EXCLUDE REGEX "/main\\.cpp$")

  add_library(${target} STATIC ${sources})
  zv_target(${target})
  target_include_directories(${target} PUBLIC "${root}")
  foreach(reach SEES USES)
    foreach(other IN LISTS ROOM_${reach})
      zv_room_target(lower "${other}")
      if(NOT TARGET ${lower})
        message(FATAL_ERROR "${path} ${reach} ${other}, which is no room below it")
      endif()
      if(reach STREQUAL "SEES")
        target_link_libraries(${target} PUBLIC ${lower})
      else()
        target_link_libraries(${target} PRIVATE ${lower})
      endif()
    endforeach()
  endforeach()
  set_property(GLOBAL APPEND PROPERTY ZV_ROOMS "${path}")
endfunction()

# zv_room_target(<variable> <path>): the target of a room, zv_core_text for core/text.
function(zv_room_target variable path)
  string(REPLACE "/" "_" name "${path}")
  set(${variable} "zv_${name}" PARENT_SCOPE)
endfunction()

# zv_link_rooms(<target> <room>...): for programs beside the rooms.
function(zv_link_rooms target)
  foreach(path IN LISTS ARGN)
    zv_room_target(room "${path}")
    target_link_libraries(${target} PRIVATE ${room})
  endforeach()
endfunction()
