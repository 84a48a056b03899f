# The sample configuration and the manual page of zorvane.conf are made from the rows of src/core/config/settings.def. They
# are kept in share/, where they can be read; a test says when they have fallen behind, update_settings_pages writes
# them anew.
add_executable(settings_pages dev/settings_pages.cpp)
target_include_directories(settings_pages PRIVATE "${CMAKE_BINARY_DIR}/rooms/zv_core_config")
zv_target(settings_pages)

set(sample "${CMAKE_SOURCE_DIR}/share/zorvane.conf.sample")
set(manual "${CMAKE_SOURCE_DIR}/share/man/man5/zorvane.conf.5")
add_custom_target(update_settings_pages
  COMMAND settings_pages sample > "${sample}"
  COMMAND settings_pages man > "${manual}"
  VERBATIM)
add_test(NAME core.config.settings_pages
  COMMAND sh -c "\"$0\" sample | cmp - \"$1\" && \"$0\" man | cmp - \"$2\""
    $<TARGET_FILE:settings_pages> "${sample}" "${manual}")
