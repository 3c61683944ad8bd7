# Moves the debug information of FILE to FILE.debug. Other builds than Release keep it in the file.
if(NOT CONFIG STREQUAL "Release")
  return()
endif()
function(run)
  execute_process(COMMAND ${ARGN} COMMAND_ERROR_IS_FATAL ANY)
endfunction()
run(${OBJCOPY} --only-keep-debug ${FILE} ${FILE}.debug)
# The time stamp in the file's header is zero and stays it.
run(${STRIP} --preserve-dates --strip-all ${FILE})
run(${OBJCOPY} --preserve-dates --add-gnu-debuglink=${FILE}.debug ${FILE})
