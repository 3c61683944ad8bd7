# The few rules that every folder's CMakeLists.txt uses.

# The library is loaded into other people's programs and waits for files most of its time, so it is built
# for size. Sources where the work is in the processor are named to kupdate_fast(source...).
string(REPLACE "-O3" "-Oz -fno-inline-small-functions" CMAKE_CXX_FLAGS_RELEASE
  "${CMAKE_CXX_FLAGS_RELEASE}")
function(kupdate_fast)
  set_source_files_properties(${ARGN} PROPERTIES
    COMPILE_OPTIONS "$<$<CONFIG:Release>:-O2;-finline-small-functions>")
endfunction()

# Compile and link settings of all our targets: language level, warnings, sanitizers, Windows flavour.
add_library(kupdate_settings INTERFACE)
target_compile_features(kupdate_settings INTERFACE cxx_std_20)
target_include_directories(kupdate_settings INTERFACE ${PROJECT_SOURCE_DIR}/src)
target_compile_options(kupdate_settings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion
  $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast -Wnon-virtual-dtor -Wsuggest-override>
  $<$<BOOL:${KUPDATE_WERROR}>:-Werror>)
if(KUPDATE_SANITIZE)
  target_compile_options(kupdate_settings INTERFACE
    -fsanitize=${KUPDATE_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(kupdate_settings INTERFACE -fsanitize=${KUPDATE_SANITIZE})
endif()
if(KUPDATE_FUZZ)
  target_compile_options(kupdate_settings INTERFACE -fsanitize=fuzzer-no-link)
endif()
option(KUPDATE_COVERAGE "Record which lines and branches run (native builds)" OFF)
if(KUPDATE_COVERAGE)
  target_compile_options(kupdate_settings INTERFACE --coverage -fprofile-update=atomic)
  target_link_options(kupdate_settings INTERFACE --coverage)
endif()
if(WIN32)
  # Windows 7 is the oldest system served; nothing of the runtime may be left to install. FORTIFY needs the
  # optimizer.
  target_compile_definitions(kupdate_settings INTERFACE _WIN32_WINNT=0x0601 UNICODE _UNICODE)
  target_compile_options(kupdate_settings INTERFACE
    -ffunction-sections -fdata-sections -fstack-protector-strong)
  target_compile_definitions(kupdate_settings INTERFACE $<$<CONFIG:Release>:_FORTIFY_SOURCE=2>)
  target_link_options(kupdate_settings INTERFACE
    -static -fstack-protector-strong -Wl,--gc-sections,--no-insert-timestamp
    -Wl,--major-os-version,6,--minor-os-version,1,--major-subsystem-version,6,--minor-subsystem-version,1
    $<$<CONFIG:Release>:$<IF:$<BOOL:$<TARGET_PROPERTY:KUPDATE_SHIPS>>,-g,-s>>)
  if(PROJECT_IS_TOP_LEVEL)
    # The same bytes and the same debug information come out in every folder.
    target_compile_options(kupdate_settings INTERFACE $<$<CONFIG:Release>:-g>
      -ffile-prefix-map=${PROJECT_BINARY_DIR}=./build -ffile-prefix-map=${PROJECT_SOURCE_DIR}=.)
  endif()
endif()

# Before the sources of a target that another project builds only when it needs it.
if(NOT PROJECT_IS_TOP_LEVEL)
  set(KUPDATE_OPTIONAL EXCLUDE_FROM_ALL)
endif()

# kupdate_library(NAME source... LINKS target...): one static library per folder.
# A source of one line per header proves that each header compiles alone.
function(kupdate_library name)
  cmake_parse_arguments(ARG "" "" "LINKS" ${ARGN})
  set(sources ${ARG_UNPARSED_ARGUMENTS})
  foreach(source IN LISTS sources)
    if(PROJECT_IS_TOP_LEVEL AND source MATCHES "\\.h$")
      string(MAKE_C_IDENTIFIER ${source} id)
      set(probe ${CMAKE_CURRENT_BINARY_DIR}/alone/${id}.cpp)
      file(RELATIVE_PATH header ${PROJECT_SOURCE_DIR}/src ${CMAKE_CURRENT_SOURCE_DIR}/${source})
      file(CONFIGURE OUTPUT ${probe} CONTENT "#include \"${header}\"\n" @ONLY)
      list(APPEND sources ${probe})
    endif()
  endforeach()
  add_library(${name} STATIC ${KUPDATE_OPTIONAL} ${sources})
  target_link_libraries(${name} PUBLIC kupdate_settings ${ARG_LINKS})
endfunction()

# kupdate_version_resource(depends...): compiles the folder's version.rc to version.rc.obj. windres gives all paths
# to a shell without quotes, so it gets none: it runs where the file is.
function(kupdate_version_resource)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/version.rc.in version.rc @ONLY)
  add_custom_command(OUTPUT version.rc.obj
    COMMAND ${CMAKE_RC_COMPILER} -O coff version.rc version.rc.obj
    WORKING_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}
    DEPENDS ${CMAKE_CURRENT_BINARY_DIR}/version.rc ${ARGN} VERBATIM)
endfunction()

# kupdate_ships(target): keeps the debug information of a file that ships beside it, as FILE.debug. The file
# itself contains the name and the checksum of that one, so a debugger finds it.
function(kupdate_ships name)
  if(NOT PROJECT_IS_TOP_LEVEL)
    return()
  endif()
  set_target_properties(${name} PROPERTIES KUPDATE_SHIPS ON)
  add_custom_command(TARGET ${name} POST_BUILD
    COMMAND ${CMAKE_COMMAND} -D FILE=$<TARGET_FILE:${name}> -D CONFIG=$<CONFIG>
      -D OBJCOPY=${CMAKE_OBJCOPY} -D STRIP=${CMAKE_STRIP} -P ${PROJECT_SOURCE_DIR}/cmake/split.cmake
    VERBATIM)
endfunction()

# kupdate_tests(source...): adds the folder's tests to the one unit test program.
function(kupdate_tests)
  foreach(source IN LISTS ARGN)
    set_property(GLOBAL APPEND PROPERTY KUPDATE_TEST_SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/${source})
  endforeach()
endfunction()
