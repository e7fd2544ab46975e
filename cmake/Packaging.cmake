# Installation and packages. The library goes where the agent loads it from,
# <prefix>/zev/slib (/usr/zev/slib in the packages), swinv goes to bin, and the
# headers a host needs to drive the component go to include/zev. CPack builds a
# .deb, and an .rpm where rpmbuild exists.

if(TARGET software)
  # Only the soname file and its target: the agent dlopens libsoftware.so.0 and links nothing.
  install(TARGETS software LIBRARY DESTINATION zev/slib NAMELINK_SKIP)
endif()
if(TARGET swinv)
  install(TARGETS swinv RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()

# The host side of the contract: records and exports, the message, and the archive
# and collections beneath them. Includes are written relative to include/zev.
file(GLOB _zev_archive_headers CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/archive/*.h)
install(FILES ${_zev_archive_headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/zev/archive)
install(FILES ${PROJECT_SOURCE_DIR}/message/NDKMessage.h ${PROJECT_SOURCE_DIR}/message/NDKMessageData.h
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/zev/message)
install(FILES ${PROJECT_SOURCE_DIR}/component/basecomponent.h ${PROJECT_SOURCE_DIR}/component/CompMenuList.h
              ${PROJECT_SOURCE_DIR}/component/HostSettings.h
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/zev/component)

set(CPACK_PACKAGE_NAME "zev-software")
set(CPACK_PACKAGE_VENDOR "ZEV")
set(CPACK_PACKAGE_CONTACT "ZEV agent team <zev-agent@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
    "Software Inventory component of the ZEV agent (libsoftware.so.0) and the swinv host program")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX "/usr")
set(CPACK_STRIP_FILES OFF)

set(CPACK_GENERATOR "DEB")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION "admin")
find_program(ZEV_DPKG_SHLIBDEPS dpkg-shlibdeps)
if(ZEV_DPKG_SHLIBDEPS)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
else()
  set(CPACK_DEBIAN_PACKAGE_DEPENDS "libc6, libstdc++6, libgcc-s1, zlib1g")
endif()

find_program(ZEV_RPMBUILD rpmbuild)
if(ZEV_RPMBUILD)
  list(APPEND CPACK_GENERATOR "RPM")
  set(CPACK_RPM_FILE_NAME RPM-DEFAULT)
  set(CPACK_RPM_PACKAGE_LICENSE "Proprietary")
  set(CPACK_RPM_PACKAGE_GROUP "System Environment/Daemons")
endif()

include(CPack)
