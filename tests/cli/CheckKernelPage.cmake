# cmake -DCOMMAND=<viewtint> -DPAGE=<file> -P CheckKernelPage.cmake
execute_process(COMMAND ${COMMAND} kernels --markdown OUTPUT_VARIABLE wanted COMMAND_ERROR_IS_FATAL ANY)
if(EXISTS ${PAGE})
  file(READ ${PAGE} present)
endif()
if(NOT "${present}" STREQUAL "${wanted}")
  message(FATAL_ERROR "${PAGE} doesn't show the kernels as they are declared now. Run: ./dev docs")
endif()
