# SPDX-License-Identifier: MIT
# What is installed, in two components: `runtime` (the shared libraries) and `dev`.

include(CMakePackageConfigHelpers)

# Installed programs find their library beside them, wherever the folder is moved.
# A package for system folders needs none of that: -DCMAKE_SKIP_INSTALL_RPATH=ON.
file(RELATIVE_PATH nasutil_libdir_from_bin "/prefix/${CMAKE_INSTALL_BINDIR}"
     "/prefix/${CMAKE_INSTALL_LIBDIR}")
set(CMAKE_INSTALL_RPATH "$ORIGIN/${nasutil_libdir_from_bin}")
if(nasutil_service_targets)
  set_target_properties(nasutil_service PROPERTIES INSTALL_RPATH "$ORIGIN")
endif()

set(nasutil_cmake_dir "${CMAKE_INSTALL_LIBDIR}/cmake/nasutil")

install(
  TARGETS nasutil nasutil_static ${nasutil_service_targets}
  EXPORT nasutil
  LIBRARY COMPONENT runtime NAMELINK_COMPONENT dev
  ARCHIVE COMPONENT dev)
install(EXPORT nasutil NAMESPACE nasutil:: FILE nasutilTargets.cmake
        DESTINATION "${nasutil_cmake_dir}" COMPONENT dev)

foreach(folder util service)
  install(DIRECTORY ${folder}/ DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/nasutil/${folder}"
          COMPONENT dev FILES_MATCHING PATTERN "*.h" PATTERN internal EXCLUDE)
endforeach()
if(NOT NASUTIL_SYSTEM_TICPP)
  install(FILES ticpp/ticpp.h DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/nasutil" COMPONENT dev)
endif()

if(nasutil_service_targets)
  install(PROGRAMS scripts/new-daemon DESTINATION "${CMAKE_INSTALL_BINDIR}" RENAME nas-new-daemon
          COMPONENT dev)
  install(FILES scripts/nas-new-daemon.1 DESTINATION "${CMAKE_INSTALL_MANDIR}/man1" COMPONENT dev)
  install(DIRECTORY examples/template DESTINATION "${CMAKE_INSTALL_DATADIR}/nasutil" COMPONENT dev)
endif()
install(FILES share/nas_conf_db.rng DESTINATION "${CMAKE_INSTALL_DATADIR}/nasutil" COMPONENT dev)

configure_package_config_file(
  cmake/nasutilConfig.cmake.in generated/nasutilConfig.cmake
  INSTALL_DESTINATION "${nasutil_cmake_dir}" NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(generated/nasutilConfigVersion.cmake
                                 COMPATIBILITY SameMajorVersion)
install(FILES "${CMAKE_BINARY_DIR}/generated/nasutilConfig.cmake"
              "${CMAKE_BINARY_DIR}/generated/nasutilConfigVersion.cmake" cmake/FindTinyXML.cmake
        DESTINATION "${nasutil_cmake_dir}" COMPONENT dev)

# Relative to the file itself, so that an install tree can be moved.
file(RELATIVE_PATH nasutil_pc_prefix "/prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/prefix")
if(NASUTIL_SYSTEM_TICPP)
  set(nasutil_pc_ticpp_libs " ${NASUTIL_TICPP_LIBRARY}")
  set(nasutil_pc_ticpp_cflags " -I${NASUTIL_TICPP_INCLUDE_DIR}")
endif()
foreach(name nasutil nasutil-service)
  configure_file(cmake/${name}.pc.in generated/${name}.pc @ONLY)
  install(FILES "${CMAKE_BINARY_DIR}/generated/${name}.pc"
          DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig" COMPONENT dev)
endforeach()
