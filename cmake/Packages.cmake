# The Debian packages (scripts/package), one a component of Install.cmake. Built twice they are the same, byte for byte.

# The date of a package, and of every file in it, is that of its last entry in the change log.
execute_process(COMMAND dpkg-parsechangelog -l ${PROJECT_SOURCE_DIR}/packaging/debian/changelog -S Timestamp
    OUTPUT_VARIABLE LUM_PACKAGE_TIME OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
configure_file(cmake/PackageEnvironment.cmake.in ${CMAKE_BINARY_DIR}/PackageEnvironment.cmake @ONLY)
set(CPACK_PROJECT_CONFIG_FILE ${CMAKE_BINARY_DIR}/PackageEnvironment.cmake)

# Pages and the change log are packed without name and time.
set(packed)
foreach(program lumagent lumforward lumcollect)
    list(APPEND packed man/${program}.1 programs/${program}.1.gz)
endforeach()
list(APPEND packed debian/changelog changelog.gz)
while(packed)
    list(POP_FRONT packed source target)
    set(output ${CMAKE_BINARY_DIR}/pages/${target})
    cmake_path(GET output PARENT_PATH folder)
    file(MAKE_DIRECTORY ${folder})
    add_custom_command(OUTPUT ${output} COMMAND gzip -9nc ${PROJECT_SOURCE_DIR}/packaging/${source} > ${output}
        DEPENDS packaging/${source} VERBATIM)
    list(APPEND outputs ${output})
endwhile()
add_custom_target(packed_pages ALL DEPENDS ${outputs})

# lum_package(component name): the package of a component, with what every package has.
function(lum_package component name)
    install(FILES ${CMAKE_BINARY_DIR}/pages/changelog.gz packaging/debian/copyright
        DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${name} COMPONENT ${component})
    string(TOUPPER ${component} upper)
    set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${name} PARENT_SCOPE)
endfunction()

# lum_service_scripts(component name): the maintainer scripts of a package with a service, packaging/debian/<name>/, with
# what all of them do for the service.
function(lum_service_scripts component name)
    set(UNIT ${name}.service)
    foreach(script postinst prerm postrm)
        file(READ packaging/debian/service-${script} service)
        string(CONFIGURE "${service}" SERVICE @ONLY)
        string(STRIP "${SERVICE}" SERVICE)
        configure_file(packaging/debian/${name}/${script} ${CMAKE_BINARY_DIR}/debian/${name}/${script} @ONLY
            FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
        set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS packaging/debian/service-${script})
        list(APPEND scripts ${CMAKE_BINARY_DIR}/debian/${name}/${script})
    endforeach()
    string(TOUPPER ${component} upper)
    set(CPACK_DEBIAN_${upper}_PACKAGE_CONTROL_EXTRA ${scripts} PARENT_SCOPE)
    set(CPACK_DEBIAN_${upper}_PACKAGE_SHLIBDEPS ON PARENT_SCOPE)
endfunction()

lum_package(runtime lumagent)
lum_package(dev lumagent-dev)
lum_package(forward lumforward)
lum_package(collect lumcollect)
lum_service_scripts(runtime lumagent)
lum_service_scripts(forward lumforward)
lum_service_scripts(collect lumcollect)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS "tzdata, systemd | systemd-standalone-sysusers")
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "device-management agent with its event record
lumagent stores what happens on a machine (packages, logons, failed services,
crashes, full disks, and whatever its modules and scripts tell it) in a
database, answers questions about it, and hands it over for a central server.
lumctl is its client on the command line.")
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "lumagent (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_DESCRIPTION "kit for modules of the device-management agent
The headers of the agent's host libraries, a CMake package and a pkg-config
file, with the sources of an example module and a script on the socket.")
set(CPACK_DEBIAN_FORWARD_PACKAGE_DEPENDS "lumagent (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_FORWARD_DESCRIPTION "forwarder of the device-management agent's outbox
lumforward sends what the agent's outbox holds to a NATS broker, and removes
each file once a receipt says that the fleet's database holds it.")
set(CPACK_DEBIAN_COLLECT_DESCRIPTION "collector of the events of a fleet of agents
lumcollect takes what the forwarders of many machines have sent from a NATS
broker and stores it in PostgreSQL, one table for each kind of event.")

# The caller builds; packing what is there needs no second look at every target.
set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY ON)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME lumagent)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "EventLogManager maintainers <maintainers@eventlogmanager.example>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime dev forward collect)
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
include(CPack)
