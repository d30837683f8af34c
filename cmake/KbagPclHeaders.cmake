# PCL::headers: the headers of the Point Cloud Library, without its libraries.
#
# The header generator for PCD files is all templates, so the development package's headers, with
# those of Eigen and Boost, are enough. They come from an installed package or from the folder into
# which `./dev setup` unpacks it (installing the package would bring several hundred others).
set(KBAG_PCL_UNPACKED ${PROJECT_SOURCE_DIR}/build/third_party/pcl)

if(CMAKE_CROSSCOMPILING)
  file(GLOB kbag_pcl_candidates ${CMAKE_SYSROOT}/usr/include/pcl-*)
else()
  file(GLOB kbag_pcl_candidates
    ${KBAG_PCL_UNPACKED}/usr/include/pcl-* /usr/include/pcl-* /usr/local/include/pcl-*)
endif()
find_path(KBAG_PCL_INCLUDE_DIR pcl/io/pcd_io.h
  HINTS ${kbag_pcl_candidates}
  DOC "Folder that holds pcl/io/pcd_io.h")
mark_as_advanced(KBAG_PCL_INCLUDE_DIR)

if(NOT KBAG_PCL_INCLUDE_DIR)
  message(FATAL_ERROR
    "The PCL headers were not found. Unpack them into build/third_party/pcl (about 1 MB to download, "
    "nothing is installed) with\n  ./dev setup\nor install libpcl-dev, or set "
    "KBAG_PCL_INCLUDE_DIR to the folder that holds pcl/io/pcd_io.h.")
endif()
find_package(Eigen3 REQUIRED NO_MODULE)
find_package(Boost REQUIRED)  # headers only

add_library(PCL::headers INTERFACE IMPORTED)
target_include_directories(PCL::headers SYSTEM INTERFACE ${KBAG_PCL_INCLUDE_DIR})
target_link_libraries(PCL::headers INTERFACE Eigen3::Eigen Boost::headers)
