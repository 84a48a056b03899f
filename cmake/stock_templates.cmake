# The names of the templates that an installation brings, for the room that looks whether they are there.
file(GLOB stockTemplates CONFIGURE_DEPENDS RELATIVE "${CMAKE_SOURCE_DIR}/share/templates" "${CMAKE_SOURCE_DIR}/share/templates/*")
list(JOIN stockTemplates ":" stockTemplates)
zv_room_target(syscheckRoom runner/syscheck)
target_compile_definitions(${syscheckRoom} PRIVATE "ZVTASKQ_STOCK_TEMPLATES=\"${stockTemplates}\"")
