# What is installed where, and the Debian package made of it (scripts/package). The libraries are the agent's and its
# modules' own, so they lie in a directory of their own and are found from where the binaries are.
include(GNUInstallDirs)

set(LUM_INSTALL_LIBDIR lib/lumagent)
set(LUM_INSTALL_MODULEDIR ${LUM_INSTALL_LIBDIR}/modules)
set(LUM_INSTALL_SYSCONFDIR /etc/lumagent)

set_target_properties(lumagent lumctl lumforward lumcollect PROPERTIES INSTALL_RPATH "$ORIGIN/../${LUM_INSTALL_LIBDIR}")
set_target_properties(lum lumcore PROPERTIES INSTALL_RPATH "$ORIGIN")
set_target_properties(EventLogManager FileStore MachineEvents PROPERTIES INSTALL_RPATH "$ORIGIN/..")

# Two packages: what runs an agent, and what builds a module for it.
set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME runtime)

install(TARGETS lumagent lumctl lumforward lumcollect RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(TARGETS lum lumcore EXPORT LumTargets
    LIBRARY DESTINATION ${LUM_INSTALL_LIBDIR} NAMELINK_COMPONENT dev)
install(TARGETS EventLogManager FileStore MachineEvents LIBRARY DESTINATION ${LUM_INSTALL_MODULEDIR})
install(FILES etc/agent.ini etc/EventLogManager.ini etc/MachineEvents.ini DESTINATION ${LUM_INSTALL_SYSCONFDIR}
    PERMISSIONS OWNER_READ OWNER_WRITE)
install(DIRECTORY etc/models DESTINATION ${CMAKE_INSTALL_DATADIR}/lumagent FILES_MATCHING PATTERN "*.xml")
install(FILES packaging/lumagent.service packaging/lumforward.service packaging/lumcollect.service
    DESTINATION /lib/systemd/system)
install(FILES packaging/man/lumforward.1 packaging/man/lumcollect.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES packaging/lumagent.sysusers DESTINATION lib/sysusers.d RENAME lumagent.conf)
install(DIRECTORY ${CMAKE_BINARY_DIR}/pages/man1 DESTINATION ${CMAKE_INSTALL_DATADIR}/man)
install(DIRECTORY ${CMAKE_BINARY_DIR}/pages/bash/ DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
install(DIRECTORY ${CMAKE_BINARY_DIR}/pages/zsh/ DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions)
install(DIRECTORY ${CMAKE_BINARY_DIR}/pages/fish/ DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/lumagent FILES_MATCHING PATTERN "*.md")
install(FILES README.md DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/lumagent)

# The kit for modules.
set(LUM_INSTALL_CMAKEDIR lib/cmake/Lum)
install(DIRECTORY src/host src/contract DESTINATION include/lum COMPONENT dev
    FILES_MATCHING PATTERN "*.h" PATTERN internal EXCLUDE)
install(EXPORT LumTargets NAMESPACE Lum:: DESTINATION ${LUM_INSTALL_CMAKEDIR} COMPONENT dev)
include(CMakePackageConfigHelpers)
write_basic_package_version_file(${CMAKE_BINARY_DIR}/LumConfigVersion.cmake COMPATIBILITY SameMajorVersion)
configure_file(cmake/lum.pc.in ${CMAKE_BINARY_DIR}/lum.pc @ONLY)
install(FILES cmake/LumConfig.cmake ${CMAKE_BINARY_DIR}/LumConfigVersion.cmake
    DESTINATION ${LUM_INSTALL_CMAKEDIR} COMPONENT dev)
install(FILES ${CMAKE_BINARY_DIR}/lum.pc DESTINATION lib/pkgconfig COMPONENT dev)
install(DIRECTORY examples DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/lumagent-dev COMPONENT dev)

# The caller builds; packing what is there needs no second look at every target.
set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY ON)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME lumagent)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "EventLogManager maintainers <root@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Device-management agent with its event record")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
    WORLD_READ WORLD_EXECUTE)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime dev)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME lumagent)
set(CPACK_DEBIAN_DEV_PACKAGE_NAME lumagent-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "lumagent (= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION ${CPACK_PACKAGE_DESCRIPTION_SUMMARY})
set(CPACK_COMPONENT_DEV_DESCRIPTION "Headers and build files for modules of the device-management agent")
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS "tzdata, systemd | systemd-standalone-sysusers")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/conffiles
    ${PROJECT_SOURCE_DIR}/packaging/postinst ${PROJECT_SOURCE_DIR}/packaging/prerm
    ${PROJECT_SOURCE_DIR}/packaging/postrm)
include(CPack)
