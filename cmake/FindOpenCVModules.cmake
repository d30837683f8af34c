# find_package(OpenCVModules COMPONENTS core imgcodecs ...): imported targets OpenCV::<component>.
#
# OpenCV's own package file comes only with the development package of the whole library; those of
# single modules, which are far smaller, bring headers and libraries alone.
find_path(OpenCVModules_INCLUDE_DIR opencv2/core.hpp PATH_SUFFIXES opencv4)
mark_as_advanced(OpenCVModules_INCLUDE_DIR)

set(opencv_modules_wanted OpenCVModules_INCLUDE_DIR)
foreach(component IN LISTS OpenCVModules_FIND_COMPONENTS)
  find_library(OpenCVModules_${component}_LIBRARY opencv_${component})
  mark_as_advanced(OpenCVModules_${component}_LIBRARY)
  list(APPEND opencv_modules_wanted OpenCVModules_${component}_LIBRARY)
endforeach()

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(OpenCVModules REQUIRED_VARS ${opencv_modules_wanted})

if(OpenCVModules_FOUND)
  foreach(component IN LISTS OpenCVModules_FIND_COMPONENTS)
    if(NOT TARGET OpenCV::${component})
      add_library(OpenCV::${component} UNKNOWN IMPORTED)
      set_target_properties(OpenCV::${component} PROPERTIES
        IMPORTED_LOCATION ${OpenCVModules_${component}_LIBRARY}
        INTERFACE_INCLUDE_DIRECTORIES ${OpenCVModules_INCLUDE_DIR})
    endif()
  endforeach()
endif()
