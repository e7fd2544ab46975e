# Installation and packages, in two components:
#   runtime (zev-software): the library in <prefix>/zev/slib (/usr/zev/slib in the packages, where
#     the agent loads it from), swinv and zevreader with their manual pages, swinv's bash completion,
#     the zevreader module, and the documents under share/doc;
#   dev (zev-software-dev, zev-software-devel as an .rpm): what a host program builds with: the
#     headers under include/zev, the static library libzev-software-host.a, the pkg-config module
#     zev-software, the CMake package ZevSoftware, and an example host under share/doc.
# Build packages from a Release configuration; cpack strips the binaries:
#   cmake -S . -B build-pkg -G Ninja -DCMAKE_BUILD_TYPE=Release -DZEV_BUILD_TESTS=OFF
#   cmake --build build-pkg && (cd build-pkg && cpack)   # .deb, and .rpm where rpmbuild exists

set(ZEV_PACKAGE_NAME zev-software)
set(ZEV_PACKAGE_DIR ${CMAKE_CURRENT_LIST_DIR}/package)
set(_zev_doc ${CMAKE_INSTALL_DATADIR}/doc)

if(TARGET software)
  # Only the soname file: the agent dlopens libsoftware.so.0 and links nothing against it.
  install(TARGETS software LIBRARY DESTINATION zev/slib NAMELINK_SKIP COMPONENT runtime)
endif()
if(TARGET swinv)
  install(TARGETS swinv RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime)
  install(FILES ${PROJECT_SOURCE_DIR}/tools/swinv/swinv.bash-completion
          DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME swinv COMPONENT runtime)
endif()

# When the install strips (cpack does), also drop the compiler's identification note, as Debian's own
# package builds do; it says nothing at run time.
if(TARGET software AND TARGET swinv AND CMAKE_OBJCOPY)
  install(CODE "
    if(CMAKE_INSTALL_DO_STRIP)
      foreach(_binary \"${CMAKE_INSTALL_BINDIR}/$<TARGET_FILE_NAME:swinv>\" \"zev/slib/$<TARGET_FILE_NAME:software>\")
        execute_process(COMMAND \"${CMAKE_OBJCOPY}\" --remove-section=.comment
                                \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/\${_binary}\" COMMAND_ERROR_IS_FATAL ANY)
      endforeach()
    endif()" COMPONENT runtime)
endif()

# zevreader: the module where Debian's python3 finds it (lib, never a multiarch folder), and a
# launcher that finds it from any prefix.
install(DIRECTORY ${PROJECT_SOURCE_DIR}/tools/zevreader/zevreader
        DESTINATION lib/python3/dist-packages COMPONENT runtime
        FILES_MATCHING PATTERN "*.py" PATTERN "__pycache__" EXCLUDE)
install(PROGRAMS ${ZEV_PACKAGE_DIR}/zevreader DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime)

# Manual pages, the changelog and the format reference, compressed as Debian wants them
# (gzip -9n: the most compression, and no name or time stamp, so the bytes are reproducible).
find_program(ZEV_GZIP gzip REQUIRED)
set(_zev_gzipped)
foreach(_source tools/swinv/swinv.1 tools/zevreader/zevreader.1 cmake/package/changelog docs/formats.md)
  get_filename_component(_name ${_source} NAME)
  set(_gz ${PROJECT_BINARY_DIR}/package/${_name}.gz)
  add_custom_command(OUTPUT ${_gz}
                     COMMAND ${CMAKE_COMMAND} -E make_directory ${PROJECT_BINARY_DIR}/package
                     COMMAND sh -c "'${ZEV_GZIP}' -9n -c '${PROJECT_SOURCE_DIR}/${_source}' > '${_gz}'"
                     DEPENDS ${PROJECT_SOURCE_DIR}/${_source} VERBATIM)
  list(APPEND _zev_gzipped ${_gz})
endforeach()
add_custom_target(zev_package_documents ALL DEPENDS ${_zev_gzipped})
install(FILES ${PROJECT_BINARY_DIR}/package/swinv.1.gz ${PROJECT_BINARY_DIR}/package/zevreader.1.gz
        DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT runtime)
install(FILES ${PROJECT_BINARY_DIR}/package/formats.md.gz DESTINATION ${_zev_doc}/${ZEV_PACKAGE_NAME} COMPONENT runtime)
install(FILES ${ZEV_PACKAGE_DIR}/lintian-overrides DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides
        RENAME ${ZEV_PACKAGE_NAME} COMPONENT runtime)
foreach(_component runtime dev)
  set(_package ${ZEV_PACKAGE_NAME})
  if(_component STREQUAL dev)
    string(APPEND _package -dev)
  endif()
  install(FILES ${ZEV_PACKAGE_DIR}/copyright ${PROJECT_BINARY_DIR}/package/changelog.gz
          DESTINATION ${_zev_doc}/${_package} COMPONENT ${_component})
endforeach()

# The host side of the contract: records and exports, the message, and the archive
# and collections beneath them. Includes are written relative to include/zev.
file(GLOB _zev_archive_headers CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/archive/*.h)
install(FILES ${_zev_archive_headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/zev/archive COMPONENT dev)
install(FILES ${PROJECT_SOURCE_DIR}/message/NDKMessage.h ${PROJECT_SOURCE_DIR}/message/NDKMessageData.h
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/zev/message COMPONENT dev)
install(FILES ${PROJECT_SOURCE_DIR}/component/basecomponent.h ${PROJECT_SOURCE_DIR}/component/CompMenuList.h
              ${PROJECT_SOURCE_DIR}/component/HostRecords.h ${PROJECT_SOURCE_DIR}/component/HostSettings.h
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/zev/component COMPONENT dev)

# The static library, its pkg-config module and its CMake package, in the multiarch folder where
# the build machine has one (Debian's pkg-config and CMake look there, also for cross builds).
if(CMAKE_LIBRARY_ARCHITECTURE)
  set(ZEV_HOST_LIBDIR lib/${CMAKE_LIBRARY_ARCHITECTURE})
else()
  set(ZEV_HOST_LIBDIR ${CMAKE_INSTALL_LIBDIR})
endif()
install(TARGETS zev_host ARCHIVE DESTINATION ${ZEV_HOST_LIBDIR} COMPONENT dev)
# A static library keeps its symbols when stripped; only the compiler's notes go, as for the binaries.
if(CMAKE_OBJCOPY)
  install(CODE "
    if(CMAKE_INSTALL_DO_STRIP)
      execute_process(COMMAND \"${CMAKE_OBJCOPY}\" --remove-section=.comment
                              \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${ZEV_HOST_LIBDIR}/$<TARGET_FILE_NAME:zev_host>\"
                      COMMAND_ERROR_IS_FATAL ANY)
    endif()" COMPONENT dev)
endif()
file(RELATIVE_PATH ZEV_PC_TO_PREFIX /${ZEV_HOST_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" ZEV_PC_TO_PREFIX "${ZEV_PC_TO_PREFIX}")
configure_file(${ZEV_PACKAGE_DIR}/zev-software.pc.in ${PROJECT_BINARY_DIR}/package/zev-software.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/package/zev-software.pc DESTINATION ${ZEV_HOST_LIBDIR}/pkgconfig COMPONENT dev)

include(CMakePackageConfigHelpers)
set(_zev_cmake_dir ${ZEV_HOST_LIBDIR}/cmake/ZevSoftware)
set(ZEV_HOST_ARCHIVE ${ZEV_HOST_LIBDIR}/${CMAKE_STATIC_LIBRARY_PREFIX}zev-software-host${CMAKE_STATIC_LIBRARY_SUFFIX})
set(ZEV_HOST_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/zev)
configure_package_config_file(${ZEV_PACKAGE_DIR}/ZevSoftwareConfig.cmake.in
  ${PROJECT_BINARY_DIR}/package/ZevSoftwareConfig.cmake
  INSTALL_DESTINATION ${_zev_cmake_dir} PATH_VARS ZEV_HOST_ARCHIVE ZEV_HOST_INCLUDEDIR)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/package/ZevSoftwareConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/package/ZevSoftwareConfig.cmake ${PROJECT_BINARY_DIR}/package/ZevSoftwareConfigVersion.cmake
        DESTINATION ${_zev_cmake_dir} COMPONENT dev)

# The example host: a source file and its CMakeLists.txt, built from the installed files alone.
install(FILES ${PROJECT_SOURCE_DIR}/tools/examplehost/example-host.cpp ${PROJECT_SOURCE_DIR}/tools/examplehost/CMakeLists.txt
        DESTINATION ${_zev_doc}/${ZEV_PACKAGE_NAME}-dev/examples COMPONENT dev)

# What both package formats share.
set(CPACK_PACKAGE_NAME ${ZEV_PACKAGE_NAME})
set(CPACK_PACKAGE_VENDOR "ZEV")
set(CPACK_PACKAGE_CONTACT "ZEV agent team <zev-agent@example.com>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX "/usr")
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL runtime dev)
set(_zev_runtime_summary "Software Inventory component of the ZEV agent, with swinv and zevreader")
set(_zev_runtime_description [=[The ZEV asset-management agent loads libsoftware.so.0 from /usr/zev/slib to
report the software installed on this machine: the packages of the package
manager, the Halvorn products and, when the server asks for them, files found
on disk. Each inventory tells the server what was added, deleted and changed
since the last one it received.

This package also provides swinv, which runs the component by hand and reads
its files, and zevreader, which decodes its list files and replies as JSON.]=])
set(_zev_dev_summary "Software Inventory component of the ZEV agent - host development files")
set(_zev_dev_description [=[What a host program needs to load and drive libsoftware.so.0, the Software
Inventory component of the ZEV asset-management agent: the headers of the
exported entry points and the records passed to them, of the message that
carries requests and replies, and of the archive beneath it; a static library
of the classes a host shares with the component; a pkg-config module
(zev-software) and a CMake package (ZevSoftware); and an example host.]=])

set(CPACK_GENERATOR "DEB")
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${ZEV_PACKAGE_NAME})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "${_zev_runtime_summary}\n${_zev_runtime_description}")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${ZEV_PACKAGE_DIR}/prerm)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_DEV_PACKAGE_NAME ${ZEV_PACKAGE_NAME}-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_DESCRIPTION "${_zev_dev_summary}\n${_zev_dev_description}")
# The static library needs zlib at link time, and its pkg-config module names zlib's.
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "${ZEV_PACKAGE_NAME} (= ${PROJECT_VERSION}), zlib1g-dev")
find_program(ZEV_DPKG_SHLIBDEPS dpkg-shlibdeps)
if(ZEV_DPKG_SHLIBDEPS)
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS "python3")
else()
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS "libc6, libstdc++6, libgcc-s1, zlib1g, python3")
endif()

find_program(ZEV_RPMBUILD rpmbuild)
if(ZEV_RPMBUILD)
  list(APPEND CPACK_GENERATOR "RPM")
  set(CPACK_RPM_COMPONENT_INSTALL ON)
  set(CPACK_RPM_FILE_NAME RPM-DEFAULT)
  set(CPACK_RPM_PACKAGE_LICENSE "Proprietary")
  set(CPACK_RPM_PACKAGE_URL "https://zev.example.com/")
  set(CPACK_RPM_RUNTIME_PACKAGE_NAME ${ZEV_PACKAGE_NAME})
  set(CPACK_RPM_RUNTIME_PACKAGE_GROUP "System Environment/Daemons")
  set(CPACK_RPM_RUNTIME_PACKAGE_SUMMARY ${_zev_runtime_summary})
  set(CPACK_RPM_RUNTIME_PACKAGE_DESCRIPTION ${_zev_runtime_description})
  set(CPACK_RPM_RUNTIME_PACKAGE_REQUIRES "python3")
  set(CPACK_RPM_RUNTIME_PRE_UNINSTALL_SCRIPT_FILE ${ZEV_PACKAGE_DIR}/prerm)
  # RPM names development packages -devel.
  set(CPACK_RPM_DEV_PACKAGE_NAME ${ZEV_PACKAGE_NAME}-devel)
  set(CPACK_RPM_DEV_PACKAGE_GROUP "Development/Libraries")
  set(CPACK_RPM_DEV_PACKAGE_SUMMARY ${_zev_dev_summary})
  set(CPACK_RPM_DEV_PACKAGE_DESCRIPTION ${_zev_dev_description})
  set(CPACK_RPM_DEV_PACKAGE_REQUIRES "${ZEV_PACKAGE_NAME} = ${PROJECT_VERSION}, zlib-devel")
  # The packages own only their files, not the shared folders above them.
  set(CPACK_RPM_EXCLUDE_FROM_AUTO_FILELIST_ADDITION
      /usr/share/man /usr/share/man/man1 /usr/lib/python3 /usr/lib/python3/dist-packages /usr/share/bash-completion
      /usr/share/bash-completion/completions /usr/share/lintian /usr/share/lintian/overrides
      /usr/${ZEV_HOST_LIBDIR} /usr/${ZEV_HOST_LIBDIR}/pkgconfig /usr/${ZEV_HOST_LIBDIR}/cmake)
endif()

include(CPack)
