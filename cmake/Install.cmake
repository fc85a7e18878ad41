include(GNUInstallDirs)

install(TARGETS lumagent lumctl RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
