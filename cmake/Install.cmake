# What is installed where; Packages.cmake makes the Debian packages of it. The libraries are the agent's and its
# modules' own, so they lie in a directory of their own and are found from where the binaries are.
include(GNUInstallDirs)

set(LUM_INSTALL_LIBDIR lib/lumagent)
set(LUM_INSTALL_MODULEDIR ${LUM_INSTALL_LIBDIR}/modules)
# The collector's machine has no agent, so its package brings the library that it needs.
set(LUM_INSTALL_COLLECTDIR lib/lumcollect)

# Beside the binary, or where the package puts them: the first needs /proc, which a root that is only being installed may
# not have.
set_target_properties(lumagent lumctl PROPERTIES
    INSTALL_RPATH "$ORIGIN/../${LUM_INSTALL_LIBDIR};/usr/${LUM_INSTALL_LIBDIR}")
set_target_properties(lumforward PROPERTIES INSTALL_RPATH "$ORIGIN/../${LUM_INSTALL_LIBDIR}")
set_target_properties(lumcollect PROPERTIES INSTALL_RPATH "$ORIGIN/../${LUM_INSTALL_COLLECTDIR}")
set_target_properties(lum PROPERTIES INSTALL_RPATH "")
set_target_properties(lumcore bring-settings PROPERTIES INSTALL_RPATH "$ORIGIN;/usr/${LUM_INSTALL_LIBDIR}")
set_target_properties(EventLogManager FileStore MachineEvents PROPERTIES
    INSTALL_RPATH "$ORIGIN/..;/usr/${LUM_INSTALL_LIBDIR}")

# What runs an agent. The other components are what builds a module for it, and the two programs of the fleet.
set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME runtime)

install(TARGETS lumagent lumctl RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(TARGETS bring-settings RUNTIME DESTINATION ${LUM_INSTALL_LIBDIR})
install(TARGETS lum lumcore EXPORT LumTargets
    LIBRARY DESTINATION ${LUM_INSTALL_LIBDIR} NAMELINK_COMPONENT dev)
install(TARGETS EventLogManager FileStore MachineEvents LIBRARY DESTINATION ${LUM_INSTALL_MODULEDIR})
install(TARGETS lumjournal RUNTIME DESTINATION ${LUM_INSTALL_MODULEDIR})
install(FILES etc/agent.ini etc/EventLogManager.ini etc/MachineEvents.ini
    DESTINATION ${CMAKE_INSTALL_DATADIR}/lumagent/settings)
install(DIRECTORY etc/models DESTINATION ${CMAKE_INSTALL_DATADIR}/lumagent FILES_MATCHING PATTERN "*.xml")
install(FILES packaging/lumagent.service DESTINATION /lib/systemd/system)
install(FILES ${CMAKE_BINARY_DIR}/pages/programs/lumagent.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES packaging/lumagent.sysusers DESTINATION lib/sysusers.d RENAME lumagent.conf)
install(DIRECTORY ${CMAKE_BINARY_DIR}/pages/man1 DESTINATION ${CMAKE_INSTALL_DATADIR}/man)
install(DIRECTORY ${CMAKE_BINARY_DIR}/pages/bash/ DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
install(DIRECTORY ${CMAKE_BINARY_DIR}/pages/zsh/ DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions)
install(DIRECTORY ${CMAKE_BINARY_DIR}/pages/fish/ DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/lumagent FILES_MATCHING PATTERN "*.md")
install(FILES README.md packaging/dashboard.json DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/lumagent)

# The fleet: a component for each program.
foreach(component forward collect)
    install(TARGETS lum${component} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT ${component})
    install(FILES packaging/lum${component}.service DESTINATION /lib/systemd/system COMPONENT ${component})
    install(FILES ${CMAKE_BINARY_DIR}/pages/programs/lum${component}.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1
        COMPONENT ${component})
endforeach()
install(TARGETS lum LIBRARY DESTINATION ${LUM_INSTALL_COLLECTDIR} COMPONENT collect NAMELINK_SKIP)

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
install(FILES ${CMAKE_BINARY_DIR}/lum.pc DESTINATION ${CMAKE_INSTALL_DATADIR}/pkgconfig COMPONENT dev)
install(DIRECTORY examples DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/lumagent-dev COMPONENT dev)
