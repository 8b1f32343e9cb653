# Kernel families: one source file each, compiled once per instruction set.

option(VIEWTINT_AVX512 "Compile the kernels for AVX-512 too" ON)

# Tracking where variables live takes minutes in bodies of hundreds of registers.
set(VIEWTINT_KERNEL_FLAGS -O2 -fno-exceptions -fno-rtti -fno-var-tracking)
set(VIEWTINT_ISA_FLAGS_sse2 -DVIEWTINT_BASELINE=1)
set(VIEWTINT_ISA_FLAGS_avx2 -mavx2)
set(VIEWTINT_ISA_FLAGS_avx512 -mavx512f -mavx512dq -mavx512vl -mavx512bw -mprefer-vector-width=512)
set(VIEWTINT_INSTRUCTION_SETS sse2 avx2)
if(VIEWTINT_AVX512)
  list(APPEND VIEWTINT_INSTRUCTION_SETS avx512)
endif()

include(GpuText)

# viewtint_kernel_family(<library> <family> <file>): adds the file's kernels to the library and to the catalogue.
# The file ends in VT_FAMILY(<family>, ...).
function(viewtint_kernel_family library family file)
  foreach(isa IN LISTS VIEWTINT_INSTRUCTION_SETS)
    set(object ${library}_${family}_${isa})
    add_library(${object} OBJECT ${file})
    target_link_libraries(${object} PRIVATE viewtint_options)
    target_compile_options(${object} PRIVATE ${VIEWTINT_KERNEL_FLAGS} ${VIEWTINT_ISA_FLAGS_${isa}})
    target_compile_definitions(${object} PRIVATE VIEWTINT_ISA=${isa})
    target_sources(${library} PRIVATE $<TARGET_OBJECTS:${object}>)
    set_property(GLOBAL APPEND_STRING PROPERTY VIEWTINT_KERNEL_OBJECTS "${isa},$<TARGET_OBJECTS:${object}>\n")
    string(APPEND declarations "inline namespace ${isa} { extern const FamilyTable ${family}_${isa}; }\n")
    string(APPEND tables "&${family}_${isa}, ")
  endforeach()
  viewtint_gpu_text(${library} ${family} ${file})
  cmake_path(GET CMAKE_CURRENT_SOURCE_DIR FILENAME folder)
  set(registration ${CMAKE_CURRENT_BINARY_DIR}/${family}Family.cpp)
  file(CONFIGURE OUTPUT ${registration} @ONLY CONTENT [[
#include "compute/Catalogue.h"

namespace Vellum::Kernels {
@declarations@
extern const StoredTexts @family@_texts;
extern const Family @family@;
const Family @family@("@folder@", {@tables@}, @family@_texts);
}  // namespace Vellum::Kernels
]])
  target_sources(${library} PRIVATE ${registration})
endfunction()
