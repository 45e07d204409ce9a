# What is installed, and the Debian package made of it: cpack -G DEB in the build directory.
include(GNUInstallDirs)

install(TARGETS zephond zephonctl RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(TARGETS zephon-decode RUNTIME DESTINATION lib/zephon)
install(FILES interface/zephon_client.h DESTINATION include)
install(FILES interface/example.cpp deploy/haproxy.cfg DESTINATION share/doc/zephon/examples)
install(FILES cli/completion/zephonctl.bash DESTINATION share/bash-completion/completions
        RENAME zephonctl)

if(TARGET zephon)
  install(TARGETS zephon RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  install(FILES packaging/zephon.desktop DESTINATION share/applications)
  install(FILES packaging/com.corvanteer.zepho.metainfo.xml DESTINATION share/metainfo)
  install(FILES app/icons/zephon.svg DESTINATION share/icons/hicolor/scalable/apps)
endif()
install(FILES packaging/systemd/zephond.service DESTINATION lib/systemd/system)
install(FILES packaging/systemd/zephond-user.service DESTINATION lib/systemd/user
        RENAME zephond.service)
install(FILES packaging/debian/copyright DESTINATION share/doc/zephon)
install(FILES docs/data.md docs/http-api.md docs/scaling.md docs/zephonctl.md
        DESTINATION share/doc/zephon)

# Texts that a Debian system keeps compressed.
find_program(ZEPHO_GZIP gzip REQUIRED)
function(zepho_install_compressed source directory)
  get_filename_component(name ${source} NAME)
  set(packed ${CMAKE_BINARY_DIR}/packaging/${directory}/${name}.gz)
  get_filename_component(folder ${packed} DIRECTORY)
  file(MAKE_DIRECTORY ${folder})
  execute_process(COMMAND ${ZEPHO_GZIP} -9 -n -c ${source} OUTPUT_FILE ${packed} COMMAND_ERROR_IS_FATAL ANY)
  install(FILES ${packed} DESTINATION ${directory})
endfunction()
configure_file(packaging/debian/changelog.in ${CMAKE_BINARY_DIR}/packaging/changelog @ONLY)
zepho_install_compressed(${CMAKE_BINARY_DIR}/packaging/changelog share/doc/zephon)
zepho_install_compressed(${CMAKE_SOURCE_DIR}/packaging/man/zephond.8 share/man/man8)
zepho_install_compressed(${CMAKE_SOURCE_DIR}/cli/zephonctl.1 share/man/man1)
if(TARGET zephon)
  zepho_install_compressed(${CMAKE_SOURCE_DIR}/packaging/man/zephon.1 share/man/man1)
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME zephon)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "Zephon Developers <packages@zephon.example>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "speech service for spoken announcements")
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
    "A client on the network posts a line of text with an airline, a language and
a gender, and gets a complete WAV back. Finished lines are kept, whole sets
of announcements are prepared in advance, and voices are cloned from short
recordings.

The package holds the window, the headless service, the command line and
the client header.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ
    GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION sound)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "fonts-noto-cjk, fonts-noto-color-emoji, qt6-wayland")
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
    "${CMAKE_SOURCE_DIR}/packaging/debian/postinst;${CMAKE_SOURCE_DIR}/packaging/debian/prerm;${CMAKE_SOURCE_DIR}/packaging/debian/postrm")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION TRUE)
include(CPack)
