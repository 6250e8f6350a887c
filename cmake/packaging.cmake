# Three Debian packages from the install rules, made by scripts/package: the libraries, what it takes to build against
# them, and the programs of the host layer with their callers.

set(CPACK_GENERATOR DEB)
set(CPACK_SET_DESTDIR ON) # for the programs' absolute destinations
set(CPACK_STRIP_FILES ON)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/packaging/compress.cmake)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING ONE_PER_GROUP)
set(CPACK_COMPONENTS_ALL runtime development documents host)
set(CPACK_COMPONENT_RUNTIME_GROUP runtime)
set(CPACK_COMPONENT_DEVELOPMENT_GROUP development)
set(CPACK_COMPONENT_DOCUMENTS_GROUP development)
set(CPACK_COMPONENT_HOST_GROUP host)

set(CPACK_PACKAGE_CONTACT "libdownloadthumbnail authors <libdownloadthumbnail@example.org>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # each package has its own
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/thumbnail ${PROJECT_BINARY_DIR}/host)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libdownloadthumbnail${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/cmake/packaging/triggers)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SUGGESTS vexodl-host)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "preview pictures of download tasks
Finds the videos and photos of a BitTorrent task, makes small JPEG pictures of
them, also while they are still downloading, and records each picture in a
database.
.
This package holds the library and its platform layer for an ordinary server.")

set(sameVersion "${CPACK_DEBIAN_RUNTIME_PACKAGE_NAME} (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libdownloadthumbnail-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${sameVersion}, libjsoncpp-dev, pkg-config")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "preview pictures of download tasks - development files
Headers, CMake package, pkg-config files, manual pages and documents of
libdownloadthumbnail, which makes small pictures of the videos and photos of
a BitTorrent task.")

set(CPACK_DEBIAN_HOST_PACKAGE_NAME vexodl-host)
set(CPACK_DEBIAN_HOST_PACKAGE_SECTION net)
set(CPACK_DEBIAN_HOST_PACKAGE_DEPENDS "${sameVersion}")
set(CPACK_DEBIAN_HOST_PACKAGE_RECOMMENDS transmission-daemon)
set(CPACK_DEBIAN_HOST_PACKAGE_CONTROL_EXTRA
    ${PROJECT_SOURCE_DIR}/cmake/packaging/postinst ${PROJECT_SOURCE_DIR}/cmake/packaging/prerm
    ${PROJECT_SOURCE_DIR}/cmake/packaging/postrm)
set(CPACK_DEBIAN_HOST_DESCRIPTION "preview pictures of download tasks - programs for an ordinary server
What libdownloadthumbnail calls at its fixed paths below /usr/vexo and
/var/packages, and what an administrator runs: addTask makes a torrent of
transmission-daemon a task, makeThumbnails makes the pictures of one and checks
the server, makeMissingThumbnails makes them of all, on request by a timer, and
writes a page of them.")

# What only a Debian package holds; a whole installation leaves it out.
foreach(component runtime development host)
    string(TOUPPER ${component} upper)
    set(package ${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
    set(folder ${CMAKE_INSTALL_DATAROOTDIR}/doc/${package})
    install(FILES cmake/packaging/copyright cmake/packaging/changelog
        DESTINATION ${folder} COMPONENT ${component} EXCLUDE_FROM_ALL)
endforeach()
foreach(component runtime host)
    string(TOUPPER ${component} upper)
    set(package ${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
    install(FILES cmake/packaging/${package}.overrides DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/lintian/overrides
        RENAME ${package} COMPONENT ${component} EXCLUDE_FROM_ALL)
endforeach()

include(CPack)
