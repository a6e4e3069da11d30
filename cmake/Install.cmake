# find_package(SegmentationCore) for hosts that build against an installed copy.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)
if(NOT ANDROID)
  # Debian's liblog lies outside the loader's path (AndroidLog.cmake). Install
  # rewrites the run path, so name its folder again for the installed copy.
  set_target_properties(SegmentationCore PROPERTIES INSTALL_RPATH "${ANDROID_LOG_DIR}")
endif()
install(TARGETS SegmentationCore EXPORT SegmentationCoreTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT SegmentationCoreTargets NAMESPACE SegmentationCore::
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/SegmentationCore)
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/SegmentationCoreConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/SegmentationCoreConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/SegmentationCore)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/SegmentationCoreConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_SOURCE_DIR}/cmake/OpenCVParts.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/SegmentationCoreConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/SegmentationCoreConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/SegmentationCore)
