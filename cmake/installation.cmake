# What `cmake --install` lays below the panel's root: the program at its top, its data, scripts and sample configuration.
install(PROGRAMS "$<TARGET_FILE:zvtaskq>" DESTINATION .)
install(FILES share/zorvane.conf.sample DESTINATION conf)
install(DIRECTORY share/templates/ DESTINATION data/templates OPTIONAL)
install(DIRECTORY share/scripts/ DESTINATION scripts USE_SOURCE_PERMISSIONS OPTIONAL)
install(DIRECTORY share/units share/man share/ftp share/mail DESTINATION share OPTIONAL)
