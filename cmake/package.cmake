# What an installation holds, by component: runtime, development, host (with server/) and database, the folder that
# only an installation without a package manager gets from here.

set(VEXODL_CMAKE_FOLDER ${CMAKE_INSTALL_LIBDIR}/cmake/downloadthumbnail)
install(TARGETS downloadthumbnail vexoplatform EXPORT downloadthumbnail
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
    FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/downloadthumbnail COMPONENT development)
install(DIRECTORY DESTINATION /var/lib/vexodl COMPONENT database)

# --- for CMake

include(CMakePackageConfigHelpers)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/downloadthumbnailConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(EXPORT downloadthumbnail NAMESPACE downloadthumbnail:: FILE downloadthumbnailTargets.cmake
    DESTINATION ${VEXODL_CMAKE_FOLDER} COMPONENT development)
install(FILES
    ${PROJECT_SOURCE_DIR}/cmake/downloadthumbnailConfig.cmake
    ${PROJECT_BINARY_DIR}/downloadthumbnailConfigVersion.cmake
    DESTINATION ${VEXODL_CMAKE_FOLDER} COMPONENT development)

# --- for pkg-config: the prefix is relative to the file, so that `cmake --install --prefix` may choose another one

set(folder ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH VEXODL_PREFIX_FROM_PC ${folder} ${CMAKE_INSTALL_PREFIX})
file(RELATIVE_PATH VEXODL_LIBDIR ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_LIBDIR})
file(RELATIVE_PATH VEXODL_INCLUDEDIR ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_INCLUDEDIR})
string(REGEX REPLACE "/$" "" VEXODL_PREFIX_FROM_PC ${VEXODL_PREFIX_FROM_PC})
set(packages downloadthumbnail)
if(VEXODL_PLATFORM_LIBRARY STREQUAL "")
    list(APPEND packages vexoplatform)
    set(VEXODL_PC_PLATFORM "Requires.private: vexoplatform")
else()
    get_target_property(library vexoplatform INTERFACE_LINK_LIBRARIES)
    list(REMOVE_ITEM library PkgConfig::JSONCPP)
    set(VEXODL_PC_PLATFORM "Libs.private: ${library}")
endif()
foreach(package IN LISTS packages)
    configure_file(${PROJECT_SOURCE_DIR}/cmake/${package}.pc.in ${PROJECT_BINARY_DIR}/${package}.pc @ONLY)
    install(FILES ${PROJECT_BINARY_DIR}/${package}.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
endforeach()

# --- documents

install(FILES
    docs/man/downloadthumbnail.3
    docs/man/GetTmpDownloadDir.3
    docs/man/RemoveTaskTemp.3
    docs/man/TmpVolumeSpaceCheck.3
    docs/man/VEXODLQuotaCheck.3
    DESTINATION ${CMAKE_INSTALL_MANDIR}/man3 COMPONENT documents)
install(FILES docs/man/addTask.1 docs/man/makeThumbnails.1 docs/man/makeMissingThumbnails.1
    DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT host)
install(FILES README.md docs/design.md docs/CHANGELOG.md
    DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/libdownloadthumbnail-dev COMPONENT documents)
install(FILES docs/server.md DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/vexodl-host COMPONENT host)

# --- pictures that come by themselves beside Debian's transmission-daemon

install(PROGRAMS server/torrentDone DESTINATION /usr/lib/vexodl COMPONENT host)
install(FILES server/vexodl-thumbnails.service server/vexodl-thumbnails.timer server/vexodl-thumbnails.path
    DESTINATION lib/systemd/system COMPONENT host)
