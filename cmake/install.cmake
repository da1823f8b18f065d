# Installation: the public headers, both engine libraries, the vexor tool, a
# CMake package and a pkg-config file.
#
#   <prefix>/include/vexor/vexor.h, automation.h, vexor_c.h
#   <prefix>/lib/libvexor.so.5.4 (+ .so.5, .so), libvexor.a
#   <prefix>/bin/vexor
#   <prefix>/lib/cmake/vexor/vexorConfig.cmake, vexorConfigVersion.cmake,
#                            vexorTargets*.cmake
#   <prefix>/lib/pkgconfig/vexor.pc
#
# A host's CMakeLists.txt says find_package(vexor) and links vexor::vexor,
# the shared library (vexor::vexor_static is the static one).  The engine
# needs nothing but the C++ standard library; its headers need C++11.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(VEXOR_PUBLIC_INCLUDE ${PROJECT_SOURCE_DIR}/api/include)
foreach(lib vexor_static vexor_shared)
  target_include_directories(${lib} PUBLIC
    $<BUILD_INTERFACE:${VEXOR_PUBLIC_INCLUDE}>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  target_compile_features(${lib} INTERFACE cxx_std_11)  # what the headers need
endforeach()
set_target_properties(vexor_shared PROPERTIES EXPORT_NAME vexor)
set_target_properties(vexor_static PROPERTIES EXPORT_NAME vexor_static)

install(DIRECTORY ${VEXOR_PUBLIC_INCLUDE}/vexor
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
  FILES_MATCHING PATTERN "*.h")
install(TARGETS vexor_shared vexor_static EXPORT vexorTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
if(TARGET vexor)
  install(TARGETS vexor RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()

set(VEXOR_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/vexor)
install(EXPORT vexorTargets NAMESPACE vexor:: DESTINATION ${VEXOR_CMAKE_DIR})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/vexorConfig.cmake.in
  ${PROJECT_BINARY_DIR}/vexorConfig.cmake
  INSTALL_DESTINATION ${VEXOR_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/vexorConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/vexorConfig.cmake ${PROJECT_BINARY_DIR}/vexorConfigVersion.cmake
  DESTINATION ${VEXOR_CMAKE_DIR})

# pkg-config: libdir and includedir relative to the file's own place, so the
# installed tree can be moved.
file(RELATIVE_PATH VEXOR_PC_TO_PREFIX
  /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
string(REGEX REPLACE "/$" "" VEXOR_PC_TO_PREFIX "${VEXOR_PC_TO_PREFIX}")
configure_file(${PROJECT_SOURCE_DIR}/cmake/vexor.pc.in ${PROJECT_BINARY_DIR}/vexor.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/vexor.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
