# __android_log_print: the NDK's liblog on the phone, Debian's android-liblog-dev
# (the same logger built for Linux, writing to stderr) everywhere else.
add_library(SegAndroidLog INTERFACE)
if(ANDROID)
  find_library(ANDROID_LOG_LIB log REQUIRED)
  target_link_libraries(SegAndroidLog INTERFACE ${ANDROID_LOG_LIB})
else()
  find_path(ANDROID_LOG_INCLUDE android/log.h PATHS /usr/include/android NO_DEFAULT_PATH REQUIRED)
  find_library(ANDROID_LOG_LIB log
    PATHS /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android NO_DEFAULT_PATH REQUIRED)
  get_filename_component(ANDROID_LOG_DIR ${ANDROID_LOG_LIB} DIRECTORY)
  target_include_directories(SegAndroidLog SYSTEM INTERFACE ${ANDROID_LOG_INCLUDE})
  # The library lives outside the loader's search path: record where it is.
  target_link_libraries(SegAndroidLog INTERFACE ${ANDROID_LOG_LIB} "-Wl,-rpath,${ANDROID_LOG_DIR}")
endif()
install(TARGETS SegAndroidLog EXPORT SegmentationCoreTargets)
