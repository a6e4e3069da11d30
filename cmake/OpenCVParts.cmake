# OpenCV core and imgproc. A full OpenCV install (the Android SDK, libopencv-dev)
# brings its own package config; Debian's split -dev packages ship only headers
# and libraries, so fall back to finding those directly.
# Defines seg_opencv_target(<component>...) -> imported target SegOpenCV::<component>.
find_package(OpenCV QUIET CONFIG)

function(seg_opencv_target)
  foreach(component IN LISTS ARGN)
    set(target SegOpenCV::${component})
    if(TARGET ${target})
      continue()
    endif()
    add_library(${target} INTERFACE IMPORTED GLOBAL)
    if(OpenCV_FOUND)
      target_include_directories(${target} SYSTEM INTERFACE ${OpenCV_INCLUDE_DIRS})
      target_link_libraries(${target} INTERFACE opencv_${component})
    else()
      find_path(SEG_OPENCV_INCLUDE opencv2/core/core_c.h PATH_SUFFIXES opencv4 REQUIRED)
      find_library(SEG_OPENCV_${component} opencv_${component} REQUIRED)
      target_include_directories(${target} SYSTEM INTERFACE ${SEG_OPENCV_INCLUDE})
      target_link_libraries(${target} INTERFACE ${SEG_OPENCV_${component}})
    endif()
  endforeach()
endfunction()
