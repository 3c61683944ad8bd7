# Moves the debug information of FILE to FILE.debug. Other builds than Release keep it in the file.
if(NOT CONFIG STREQUAL "Release")
  return()
endif()
function(run)
  execute_process(COMMAND ${ARGN} COMMAND_ERROR_IS_FATAL ANY)
endfunction()
# The time stamp in the header is zero; only so it stays.
run(${OBJCOPY} --preserve-dates --only-keep-debug ${FILE} ${FILE}.debug)
run(${STRIP} --preserve-dates --strip-all ${FILE})
run(${OBJCOPY} --preserve-dates --add-gnu-debuglink=${FILE}.debug ${FILE})
