# `cmake --install` installs the platform layer, the library and (when built) the exporters as a
# CMake package with namespaced targets, plus pkg-config files (QENPerformanceLogger, and
# QENPerformanceLoggerExporters when the exporters are built):
#   find_package(QENPerformanceLogger 0.1 REQUIRED)        # or REQUIRED COMPONENTS Exporters
#   target_link_libraries(app PRIVATE QENPerformanceLogger::QENPerformanceLogger)
# Public headers go to include/QENPerformanceLogger, which the targets put on the include path.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(QEN_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/QENPerformanceLogger)
# The pkg-config files find their prefix from where they lie, so that an installed tree may be
# moved, or installed with --prefix elsewhere than configured.
file(RELATIVE_PATH QEN_PC_TO_PREFIX "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
string(REGEX REPLACE "/$" "" QEN_PC_TO_PREFIX "${QEN_PC_TO_PREFIX}")
set(QEN_PC_PREFIX "\${pcfiledir}/${QEN_PC_TO_PREFIX}")
set(QEN_HEADER_DIR ${CMAKE_INSTALL_INCLUDEDIR}/QENPerformanceLogger)

set_target_properties(QENPlatform PROPERTIES EXPORT_NAME Platform)
install(TARGETS QENPlatform QENPerformanceLogger EXPORT QENPerformanceLoggerTargets
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
        FILE_SET HEADERS DESTINATION ${QEN_HEADER_DIR}
        FILE_SET generated DESTINATION ${QEN_HEADER_DIR})
install(EXPORT QENPerformanceLoggerTargets NAMESPACE QENPerformanceLogger::
        DESTINATION ${QEN_PACKAGE_DIR})

set(QEN_PACKAGE_HAS_EXPORTERS ${QEN_BUILD_EXPORTERS})
if(QEN_BUILD_EXPORTERS)
  set_target_properties(QENExporters PROPERTIES EXPORT_NAME Exporters)
  install(TARGETS QENExporters EXPORT QENPerformanceLoggerExportersTargets
          ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
          FILE_SET HEADERS DESTINATION ${QEN_HEADER_DIR})
  install(EXPORT QENPerformanceLoggerExportersTargets NAMESPACE QENPerformanceLogger::
          DESTINATION ${QEN_PACKAGE_DIR})
  configure_file(${CMAKE_CURRENT_LIST_DIR}/QENPerformanceLoggerExporters.pc.in
                 ${CMAKE_CURRENT_BINARY_DIR}/QENPerformanceLoggerExporters.pc @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/QENPerformanceLoggerExporters.pc
          DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endif()

# The C interface: its shared library, header and Swift module map, found with pkg-config
# (QENPerformanceLoggerC) or by path; nothing of the C++ inside shows.
if(TARGET QENPerformanceLoggerC)
  install(TARGETS QENPerformanceLoggerC
          LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
          FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/QENPerformanceLoggerC)
  install(FILES ${PROJECT_SOURCE_DIR}/Bindings/C/module.modulemap
          DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/QENPerformanceLoggerC)
  configure_file(${CMAKE_CURRENT_LIST_DIR}/QENPerformanceLoggerC.pc.in
                 ${CMAKE_CURRENT_BINARY_DIR}/QENPerformanceLoggerC.pc @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/QENPerformanceLoggerC.pc
          DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endif()

configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/QENPerformanceLoggerConfig.cmake.in
                              ${CMAKE_CURRENT_BINARY_DIR}/QENPerformanceLoggerConfig.cmake
                              INSTALL_DESTINATION ${QEN_PACKAGE_DIR})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/QENPerformanceLoggerConfigVersion.cmake
                                 COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/QENPerformanceLoggerConfig.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/QENPerformanceLoggerConfigVersion.cmake
        DESTINATION ${QEN_PACKAGE_DIR})

configure_file(${CMAKE_CURRENT_LIST_DIR}/QENPerformanceLogger.pc.in
               ${CMAKE_CURRENT_BINARY_DIR}/QENPerformanceLogger.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/QENPerformanceLogger.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
