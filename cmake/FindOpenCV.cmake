# OpenCV's own CMake files want all of its modules; this looks for those that are asked for. Targets: opencv_<component>.
find_path(OpenCV_INCLUDE_DIR opencv2/core.hpp PATH_SUFFIXES opencv4)
set(OpenCV_REQUIRED_VARIABLES OpenCV_INCLUDE_DIR)
foreach(component IN LISTS OpenCV_FIND_COMPONENTS)
  find_library(OpenCV_${component}_LIBRARY opencv_${component})
  list(APPEND OpenCV_REQUIRED_VARIABLES OpenCV_${component}_LIBRARY)
  if(OpenCV_${component}_LIBRARY AND NOT TARGET opencv_${component})
    add_library(opencv_${component} UNKNOWN IMPORTED)
    set_target_properties(opencv_${component} PROPERTIES
      IMPORTED_LOCATION "${OpenCV_${component}_LIBRARY}" INTERFACE_INCLUDE_DIRECTORIES "${OpenCV_INCLUDE_DIR}")
  endif()
endforeach()
include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(OpenCV REQUIRED_VARS ${OpenCV_REQUIRED_VARIABLES})
