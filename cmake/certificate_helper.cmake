# The helper program zvcert, which alone links the TLS library.
find_path(ZVTASKQ_TLS_INCLUDE openssl/ssl.h DOC "Folder above the TLS library's openssl/ssl.h")
find_library(ZVTASKQ_TLS_LIBRARY NAMES ssl DOC "The TLS library")
find_library(ZVTASKQ_CRYPTO_LIBRARY NAMES crypto DOC "The cryptography library")

if(ZVTASKQ_TLS_INCLUDE AND ZVTASKQ_TLS_LIBRARY AND ZVTASKQ_CRYPTO_LIBRARY)
  zv_room_target(certificateRoom libexec/certificate)
  target_include_directories(${certificateRoom} SYSTEM PRIVATE "${ZVTASKQ_TLS_INCLUDE}")
  zv_helper(zvcert libexec/certificate "${ZVTASKQ_TLS_LIBRARY}" "${ZVTASKQ_CRYPTO_LIBRARY}")
else()
  zv_no_helper(libexec/certificate "The TLS library is missing (on Debian: apt-get install libssl-dev)"
               "libexec/zvcert is not built, and without it no site gets a certificate of its own.")
endif()
