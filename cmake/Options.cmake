# How every part of the project is compiled.

option(VIEWTINT_HOST "Build the node, its host and the command" ON)
option(VIEWTINT_PYTHON "Build the Python module, if nanobind and Python's headers are there" ON)
option(VIEWTINT_TESTS "Build the tests" ON)
option(VIEWTINT_BENCHMARKS "Build the benchmarks" ON)
set(VIEWTINT_SANITIZE "" CACHE STRING "Sanitizers for every part, for example address,undefined")

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE Release)
endif()

# The arithmetic promise: the same operations in the same order everywhere. Contraction would round
# differently where a fused multiply-add exists; errno and traps are never looked at.
set(VIEWTINT_ARITHMETIC_FLAGS -ffp-contract=off -fno-math-errno -fno-trapping-math)

# -Wno-psabi: vector types never cross the boundary of an object. -Wno-restrict: false alarms of GCC 12 on std::string.
add_library(viewtint_options INTERFACE)
target_compile_options(viewtint_options INTERFACE -Wall -Wextra -Wno-psabi -Wno-restrict ${VIEWTINT_ARITHMETIC_FLAGS})
target_include_directories(viewtint_options INTERFACE ${CMAKE_SOURCE_DIR})
if(VIEWTINT_SANITIZE)
  target_compile_options(viewtint_options INTERFACE -fsanitize=${VIEWTINT_SANITIZE} -fno-sanitize-recover=all
                                                   -fno-omit-frame-pointer)
  target_link_options(viewtint_options INTERFACE -fsanitize=${VIEWTINT_SANITIZE})
endif()
