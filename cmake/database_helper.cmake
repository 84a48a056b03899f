# The helper program zvdb, which alone links the MySQL client library.
find_path(ZVTASKQ_MYSQL_INCLUDE mysql.h PATH_SUFFIXES mariadb mysql DOC "Folder of the MySQL client library's mysql.h")
find_library(ZVTASKQ_MYSQL_LIBRARY NAMES mariadb mysqlclient PATH_SUFFIXES mariadb mysql DOC "The MySQL client library")

if(ZVTASKQ_MYSQL_INCLUDE AND ZVTASKQ_MYSQL_LIBRARY)
  zv_room_target(databaseRoom libexec/database)
  target_include_directories(${databaseRoom} SYSTEM PRIVATE "${ZVTASKQ_MYSQL_INCLUDE}")
  zv_helper(zvdb libexec/database "${ZVTASKQ_MYSQL_LIBRARY}")
else()
  zv_no_helper(libexec/database "The MySQL client library is missing (on Debian: apt-get install libmariadb-dev)"
               "libexec/zvdb is not built, and without it databases are neither counted nor locked.")
endif()
