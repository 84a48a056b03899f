# The stock list of brute-force filters is made from the rows of src/tally/bruteforce/lines/filters.def. It is kept in share/, from
# where it is installed; a test says when it has fallen behind, update_filter_list writes it anew.
add_executable(filter_list dev/filter_list.cpp)
zv_link_rooms(filter_list tally/bruteforce/lines)
zv_target(filter_list)

set(list "${CMAKE_SOURCE_DIR}/share/templates/brute_filter.list")
add_custom_target(update_filter_list COMMAND filter_list > "${list}" VERBATIM)
add_test(NAME tally.bruteforce.lines.filter_list COMMAND sh -c "\"$0\" | cmp - \"$1\"" $<TARGET_FILE:filter_list> "${list}")
