# GPU text of the kernel families: made by clang, which needs no toolkit, or else by nvcc; without either the variants for
# GPUs stay empty and renders run on the CPU. The oldest target that the compiler knows runs on all later devices.

set(VIEWTINT_GPU_TEXT auto CACHE STRING "What makes the kernels' GPU text: auto, clang, nvcc or none")
set_property(CACHE VIEWTINT_GPU_TEXT PROPERTY STRINGS auto clang nvcc none)

set(VIEWTINT_GPU_FLAGS -std=c++20 -O2 -DVIEWTINT_ISA=cuda -DVIEWTINT_CUDA=1)

function(viewtint_try_gpu_compiler command)
  set(probe ${CMAKE_BINARY_DIR}/CMakeFiles/gpuProbe)
  file(WRITE ${probe}.cu [[
template <class T> concept Number = requires(T a) { a + a; };
extern "C" __attribute__((global)) void probe(float* p) {
    if constexpr (Number<float>) *p = *p * 3 + 1;
}
]])
  execute_process(COMMAND ${command} ${probe}.cu -o ${probe}.ptx RESULT_VARIABLE failed OUTPUT_QUIET ERROR_QUIET)
  if(NOT failed)
    set(VIEWTINT_GPU_COMMAND ${command} CACHE INTERNAL "")
  endif()
endfunction()

set(VIEWTINT_GPU_COMMAND "" CACHE INTERNAL "")
if(VIEWTINT_GPU_TEXT MATCHES "auto|clang")
  find_program(VIEWTINT_GPU_CLANG NAMES clang++ clang++-14 clang++-15 clang++-16 clang++-17 clang++-18 clang++-19)
  foreach(target sm_20 sm_35 sm_50 sm_75)
    if(VIEWTINT_GPU_CLANG AND NOT VIEWTINT_GPU_COMMAND)
      # No host code, no toolkit: the bodies call nothing.
      viewtint_try_gpu_compiler("${VIEWTINT_GPU_CLANG};-x;cuda;--cuda-device-only;-nocudainc;-nocudalib;-Wno-unknown-cuda-version;--cuda-gpu-arch=${target};-S;-ffp-contract=off;-fno-math-errno;-fno-trapping-math;-fno-exceptions;-fno-rtti;${VIEWTINT_GPU_FLAGS}")
    endif()
  endforeach()
endif()
if(VIEWTINT_GPU_TEXT MATCHES "auto|nvcc" AND NOT VIEWTINT_GPU_COMMAND)
  find_program(VIEWTINT_GPU_NVCC nvcc PATHS /usr/local/cuda/bin)
  foreach(target compute_50 compute_75)
    if(VIEWTINT_GPU_NVCC AND NOT VIEWTINT_GPU_COMMAND)
      viewtint_try_gpu_compiler("${VIEWTINT_GPU_NVCC};-ptx;-arch=${target};--expt-relaxed-constexpr;-fmad=false;-w;${VIEWTINT_GPU_FLAGS}")
    endif()
  endforeach()
endif()
if(VIEWTINT_GPU_COMMAND)
  list(GET VIEWTINT_GPU_COMMAND 0 compiler)
  message(STATUS "Kernels for GPUs: ${compiler}")
elseif(VIEWTINT_GPU_TEXT STREQUAL "none" OR VIEWTINT_GPU_TEXT STREQUAL "auto")
  message(STATUS "Kernels for GPUs: none; install clang to have them")
else()
  message(FATAL_ERROR "VIEWTINT_GPU_TEXT=${VIEWTINT_GPU_TEXT}: no such compiler, or it can't make GPU text")
endif()

add_executable(viewtint_pack_kernels ${CMAKE_SOURCE_DIR}/tools/packKernels.cpp)
target_link_libraries(viewtint_pack_kernels PRIVATE viewtint_options ZLIB::ZLIB)

# Adds a family's texts to its library.
function(viewtint_gpu_text library family file)
  set(base ${CMAKE_CURRENT_BINARY_DIR}/${family})
  set(text "")
  if(VIEWTINT_GPU_COMMAND)
    cmake_path(ABSOLUTE_PATH file OUTPUT_VARIABLE source)
    file(CONFIGURE OUTPUT ${base}.cu CONTENT "#pragma clang force_cuda_host_device begin\n#include \"@source@\"\n#pragma clang force_cuda_host_device end\n" @ONLY)
    set(text ${base}.ptx)
    add_custom_command(OUTPUT ${text}
      COMMAND ${VIEWTINT_GPU_COMMAND} -I${CMAKE_SOURCE_DIR} -MD -MF ${text}.d -MT ${text} ${base}.cu -o ${text}
      DEPENDS ${base}.cu ${source} DEPFILE ${text}.d
      COMMENT "Compiling ${family} for GPUs" VERBATIM COMMAND_EXPAND_LISTS)
  endif()
  add_custom_command(OUTPUT ${base}Texts.cpp
    COMMAND viewtint_pack_kernels ${family} ${text} ${base}Texts.cpp
    DEPENDS viewtint_pack_kernels ${text} VERBATIM COMMAND_EXPAND_LISTS)
  target_sources(${library} PRIVATE ${base}Texts.cpp)
endfunction()
