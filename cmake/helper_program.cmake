# The helper programs below libexec, each with the libraries that it alone needs.

# A helper of a room, linked with further libraries. They are not linked to the room: a program that is linked with all
# rooms would want them too.
function(zv_helper name room)
  add_executable(${name} src/${room}/main.cpp)
  zv_link_rooms(${name} ${room})
  target_link_libraries(${name} PRIVATE ${ARGN})
  zv_target(${name})
  if(ZVTASKQ_SANITIZE)
    # It is started with an environment that no option for the sanitizers reaches it through.
    target_sources(${name} PRIVATE tests/support/no_leak_search.cpp)
  endif()
  install(PROGRAMS "$<TARGET_FILE:${name}>" DESTINATION libexec)
endfunction()

# A plain build without the library goes on without the helper, and says what that means; whoever works on the program
# has the library (dev/lib/packages.sh).
function(zv_no_helper room words meaning)
  if(BUILD_TESTING OR ZVTASKQ_BENCH OR ZVTASKQ_FUZZ)
    message(FATAL_ERROR "${words}.")
  endif()
  message(WARNING "${words}: ${meaning}")
  zv_room_target(target ${room})
  set_target_properties(${target} PROPERTIES EXCLUDE_FROM_ALL ON)
endfunction()
