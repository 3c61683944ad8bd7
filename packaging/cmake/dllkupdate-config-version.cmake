# A package serves requests for the same major version, up to its own version.
set(PACKAGE_VERSION "@VERSION@")
string(REGEX MATCH "^[0-9]+" _dllkupdate_major "${PACKAGE_VERSION}")
if(PACKAGE_FIND_VERSION_RANGE)
  set(_dllkupdate_least "${PACKAGE_FIND_VERSION_MIN}")
  set(_dllkupdate_least_major "${PACKAGE_FIND_VERSION_MIN_MAJOR}")
else()
  set(_dllkupdate_least "${PACKAGE_FIND_VERSION}")
  set(_dllkupdate_least_major "${PACKAGE_FIND_VERSION_MAJOR}")
endif()

set(PACKAGE_VERSION_COMPATIBLE FALSE)
if(PACKAGE_VERSION VERSION_GREATER_EQUAL _dllkupdate_least AND
   _dllkupdate_major STREQUAL _dllkupdate_least_major)
  set(PACKAGE_VERSION_COMPATIBLE TRUE)
endif()
if(PACKAGE_FIND_VERSION_RANGE)
  if((PACKAGE_FIND_VERSION_RANGE_MAX STREQUAL "INCLUDE" AND
      PACKAGE_VERSION VERSION_GREATER PACKAGE_FIND_VERSION_MAX) OR
     (PACKAGE_FIND_VERSION_RANGE_MAX STREQUAL "EXCLUDE" AND
      PACKAGE_VERSION VERSION_GREATER_EQUAL PACKAGE_FIND_VERSION_MAX))
    set(PACKAGE_VERSION_COMPATIBLE FALSE)
  endif()
elseif(PACKAGE_VERSION VERSION_EQUAL _dllkupdate_least)
  set(PACKAGE_VERSION_EXACT TRUE)
endif()

# The package has files for two architectures. A project without a language has no pointer size. A computer of
# another architecture may build for one of the two, so the compiler's word counts first.
set(_dllkupdate_target "${CMAKE_C_COMPILER_ARCHITECTURE_ID}${CMAKE_CXX_COMPILER_ARCHITECTURE_ID}")
if(_dllkupdate_target STREQUAL "")
  set(_dllkupdate_target "${CMAKE_SYSTEM_PROCESSOR}")
endif()
if(_dllkupdate_target MATCHES "ARM|arm|aarch")
  set(PACKAGE_VERSION_UNSUITABLE TRUE)
endif()

unset(_dllkupdate_target)
unset(_dllkupdate_least)
unset(_dllkupdate_least_major)
unset(_dllkupdate_major)
