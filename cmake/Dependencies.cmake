# Debian's packages as imported targets. Android's libraries lie in a folder of their own, their headers
# under one root that must be taken as system headers.

find_package(Threads REQUIRED)
find_package(Protobuf REQUIRED)
find_package(fmt REQUIRED)

set(DIAG_ANDROID_INCLUDE /usr/include/android CACHE PATH "Root of Android's platform headers")
find_path(DIAG_JSONCPP_INCLUDE json/json.h PATH_SUFFIXES jsoncpp REQUIRED)
find_library(DIAG_JSONCPP_LIBRARY jsoncpp REQUIRED)
add_library(jsoncpp::jsoncpp UNKNOWN IMPORTED)
set_target_properties(jsoncpp::jsoncpp PROPERTIES
  IMPORTED_LOCATION ${DIAG_JSONCPP_LIBRARY}
  INTERFACE_INCLUDE_DIRECTORIES ${DIAG_JSONCPP_INCLUDE})

add_library(Android::headers INTERFACE IMPORTED)
set_target_properties(Android::headers PROPERTIES INTERFACE_INCLUDE_DIRECTORIES ${DIAG_ANDROID_INCLUDE})
foreach(name IN ITEMS log utils cutils base)
  find_library(DIAG_ANDROID_${name} ${name} PATH_SUFFIXES android NO_CMAKE_ENVIRONMENT_PATH REQUIRED)
  add_library(Android::${name} UNKNOWN IMPORTED)
  set_target_properties(Android::${name} PROPERTIES
    IMPORTED_LOCATION ${DIAG_ANDROID_${name}}
    INTERFACE_LINK_LIBRARIES Android::headers)
endforeach()

# A real libbinder takes the place of platform/binder, which defines the same target.
if(DIAG_BINDER_LIBRARY)
  add_library(Android::binder UNKNOWN IMPORTED)
  set_target_properties(Android::binder PROPERTIES
    IMPORTED_LOCATION ${DIAG_BINDER_LIBRARY}
    INTERFACE_LINK_LIBRARIES "Android::utils;Android::cutils;Android::base;Android::log")
endif()
