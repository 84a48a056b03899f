# docs/templates.md is made from the tables of tokens that the services use. It is kept in docs/, where it can be read; a
# test says when it has fallen behind, update_template_pages writes it anew.
add_executable(template_pages dev/template_pages.cpp)
target_include_directories(template_pages PRIVATE "${CMAKE_BINARY_DIR}/rooms/zv_services_dns"
  "${CMAKE_BINARY_DIR}/rooms/zv_account_filters"
  "${CMAKE_BINARY_DIR}/rooms/zv_services_ftp" "${CMAKE_BINARY_DIR}/rooms/zv_services_web")
zv_target(template_pages)

set(page "${CMAKE_SOURCE_DIR}/docs/templates.md")
add_custom_target(update_template_pages COMMAND template_pages > "${page}" VERBATIM)
add_test(NAME services.template_pages COMMAND sh -c "\"$0\" | cmp - \"$1\"" $<TARGET_FILE:template_pages> "${page}")
