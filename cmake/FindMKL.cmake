# Intel's Math Kernel Library as the Python packages mkl-static and mkl-include bring it: in the environment of the Python
# in use, or in that of "./dev setup". Linked statically, so that programs run without that environment. Threads are our
# own, hence the sequential layer.

set(MKL_prefixes $ENV{MKLROOT} ${CMAKE_SOURCE_DIR}/build/venv)
find_package(Python QUIET COMPONENTS Interpreter)
if(Python_Interpreter_FOUND)
  execute_process(COMMAND ${Python_EXECUTABLE} -c "import sys; print(sys.prefix, *sys.path, sep=';')"
                  OUTPUT_VARIABLE MKL_python_paths OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
  foreach(path IN LISTS MKL_python_paths)
    # An isolated build of a wheel keeps packages apart, their data beside lib/pythonX.Y/site-packages.
    list(APPEND MKL_prefixes ${path} ${path}/../../..)
  endforeach()
endif()

find_path(MKL_INCLUDE_DIR mkl_dfti.h PATHS ${MKL_prefixes} PATH_SUFFIXES include)
set(MKL_required MKL_INCLUDE_DIR)
foreach(part IN ITEMS intel_lp64 sequential core)
  find_library(MKL_${part}_LIBRARY libmkl_${part}.a PATHS ${MKL_prefixes} PATH_SUFFIXES lib)
  list(APPEND MKL_required MKL_${part}_LIBRARY)
endforeach()

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(MKL
  REQUIRED_VARS ${MKL_required}
  REASON_FAILURE_MESSAGE "run \"./dev setup\", or install the Python packages mkl-static and mkl-include")
if(MKL_FOUND AND NOT TARGET MKL::MKL)
  add_library(MKL::MKL INTERFACE IMPORTED GLOBAL)
  target_include_directories(MKL::MKL SYSTEM INTERFACE ${MKL_INCLUDE_DIR})
  target_link_libraries(MKL::MKL INTERFACE
    -Wl,--start-group ${MKL_intel_lp64_LIBRARY} ${MKL_sequential_LIBRARY} ${MKL_core_LIBRARY} -Wl,--end-group
    pthread m dl)
endif()
