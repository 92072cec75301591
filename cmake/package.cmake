# What find_package(Ordwell) finds: the programs as imported executables and the CMake function for the targets of a project,
# installed, and in the build folder for those who name it as Ordwell_DIR. The programs run where they were built, whatever a
# project builds for, so the version file does not ask for the width of a pointer.
include(CMakePackageConfigHelpers)
set(package_folder lib/cmake/Ordwell)
set(package_steps
  cmake/OrdwellOrderFunctions.cmake cmake/ordwell_steps.cmake cmake/ordwell_link.cmake cmake/ordwell_profile.cmake
  cmake/ordwell_report.cmake)

write_basic_package_version_file(OrdwellConfigVersion.cmake COMPATIBILITY SameMajorVersion ARCH_INDEPENDENT)
set(module_folder ${PROJECT_SOURCE_DIR}/cmake)
configure_file(cmake/OrdwellConfig.cmake.in OrdwellConfig.cmake @ONLY)
set(module_folder "\${CMAKE_CURRENT_LIST_DIR}")
configure_file(cmake/OrdwellConfig.cmake.in installed/OrdwellConfig.cmake @ONLY)

export(EXPORT OrdwellTargets NAMESPACE Ordwell:: FILE OrdwellTargets.cmake)
install(EXPORT OrdwellTargets NAMESPACE Ordwell:: DESTINATION ${package_folder})
install(FILES ${PROJECT_BINARY_DIR}/installed/OrdwellConfig.cmake ${PROJECT_BINARY_DIR}/OrdwellConfigVersion.cmake
  ${package_steps} DESTINATION ${package_folder})
