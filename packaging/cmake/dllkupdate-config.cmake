# find_package(dllkupdate CONFIG) defines for the program's architecture
#   dllkupdate::dllkupdate    the library
#   dllkupdate::kupdate-exec  the executor, a program to install beside it
#   dllkupdate_EXECUTOR       the executor's path
if(NOT WIN32)
  set(dllkupdate_FOUND FALSE)
  set(dllkupdate_NOT_FOUND_MESSAGE "dllkupdate is for programs for Windows.")
  return()
endif()

get_filename_component(_dllkupdate_root "${CMAKE_CURRENT_LIST_DIR}/../../.." ABSOLUTE)
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
  set(_dllkupdate_files "${_dllkupdate_root}/x86")
else()
  set(_dllkupdate_files "${_dllkupdate_root}/x64")
endif()
# The import library of each compiler's own linker. Clang may imitate Microsoft's compiler under its own options.
if(MSVC OR "${CMAKE_C_SIMULATE_ID};${CMAKE_CXX_SIMULATE_ID}" MATCHES "MSVC")
  set(_dllkupdate_implib "${_dllkupdate_files}/lib/dllkupdate.lib")
else()
  set(_dllkupdate_implib "${_dllkupdate_files}/lib/libdllkupdate.dll.a")
endif()
set(dllkupdate_EXECUTOR "${_dllkupdate_files}/kupdate-exec.exe")

if(NOT TARGET dllkupdate::dllkupdate)
  add_library(dllkupdate::dllkupdate SHARED IMPORTED)
  set_target_properties(dllkupdate::dllkupdate PROPERTIES
    IMPORTED_LOCATION "${_dllkupdate_files}/dllkupdate.dll"
    IMPORTED_IMPLIB "${_dllkupdate_implib}"
    INTERFACE_INCLUDE_DIRECTORIES "${_dllkupdate_root}/include")
  add_executable(dllkupdate::kupdate-exec IMPORTED)
  set_target_properties(dllkupdate::kupdate-exec PROPERTIES IMPORTED_LOCATION "${dllkupdate_EXECUTOR}")
endif()

unset(_dllkupdate_root)
unset(_dllkupdate_files)
unset(_dllkupdate_implib)
