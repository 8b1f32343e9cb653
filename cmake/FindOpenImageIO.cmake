# OpenImageIO by way of pkg-config. The CMake files of Debian 12's libopenimageio-dev want its command line tools and
# OpenCV's headers to be installed, though neither is needed to compile with the library.

find_package(PkgConfig REQUIRED)
pkg_check_modules(OpenImageIO_PKG QUIET IMPORTED_TARGET OpenImageIO)

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(OpenImageIO REQUIRED_VARS OpenImageIO_PKG_LINK_LIBRARIES
                                  VERSION_VAR OpenImageIO_PKG_VERSION)
if(OpenImageIO_FOUND AND NOT TARGET OpenImageIO::OpenImageIO)
  add_library(OpenImageIO::OpenImageIO INTERFACE IMPORTED)
  target_link_libraries(OpenImageIO::OpenImageIO INTERFACE PkgConfig::OpenImageIO_PKG)
endif()
