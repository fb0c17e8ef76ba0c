# What is installed where, and the two Debian packages: the program, and the translation service.
# Everything that names the version gets it from the project.

set(KELVARIN_PACKAGING ${CMAKE_CURRENT_LIST_DIR}/../packaging)
string(TIMESTAMP KELVARIN_RELEASE_DATE "%Y-%m-%d" UTC)              # SOURCE_DATE_EPOCH counts
string(TIMESTAMP KELVARIN_CHANGELOG_DATE "%a, %d %b %Y %H:%M:%S +0000" UTC)

if(WIN32)
    # The rest of the zip is made by scripts/package-windows.
    configure_file(${KELVARIN_PACKAGING}/windows/README.txt.in README.txt @ONLY NEWLINE_STYLE CRLF)
    return()
endif()

set(CMAKE_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS # whatever the umask of who builds
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

# install_compressed(COMPONENT DESTINATION FILE ...): as FILE.gz, without a name or a time in it.
function(install_compressed component destination)
    foreach(file IN LISTS ARGN)
        get_filename_component(name ${file} NAME)
        set(compressed ${CMAKE_CURRENT_BINARY_DIR}/packaging/${component}/${name}.gz)
        add_custom_command(OUTPUT ${compressed}
            COMMAND ${CMAKE_COMMAND} -E make_directory
                    ${CMAKE_CURRENT_BINARY_DIR}/packaging/${component}
            COMMAND gzip -9nc ${file} > ${compressed}
            DEPENDS ${file} VERBATIM)
        add_custom_target(${component}-${name}-gz ALL DEPENDS ${compressed})
        install(FILES ${compressed} DESTINATION ${destination} COMPONENT ${component})
    endforeach()
endfunction()

# install_documents(COMPONENT PACKAGE): what every package has.
function(install_documents component package)
    set(KELVARIN_PACKAGE ${package})
    set(changelog ${CMAKE_CURRENT_BINARY_DIR}/packaging/${package}/changelog)
    configure_file(${KELVARIN_PACKAGING}/changelog.in ${changelog} @ONLY)
    install_compressed(${component} share/doc/${package} ${changelog})
    install(FILES ${KELVARIN_PACKAGING}/${package}/copyright DESTINATION share/doc/${package}
            COMPONENT ${component})
endfunction()

# ---- The program ---------------------------------------------------------------------------------

install(TARGETS kelvarin RUNTIME DESTINATION bin COMPONENT program)
foreach(size 16 32 48 64 128 256)
    install(FILES ${PROJECT_SOURCE_DIR}/resources/icon/${size}.png RENAME kelvarin.png
            DESTINATION share/icons/hicolor/${size}x${size}/apps COMPONENT program)
endforeach()
install(FILES ${PROJECT_SOURCE_DIR}/resources/kelvarin.svg
        DESTINATION share/icons/hicolor/scalable/apps COMPONENT program)
install(FILES ${KELVARIN_PACKAGING}/kelvarin/kelvarin.desktop
        DESTINATION share/applications COMPONENT program)
configure_file(${KELVARIN_PACKAGING}/kelvarin/kelvarin.metainfo.xml.in
    packaging/kelvarin.metainfo.xml @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/packaging/kelvarin.metainfo.xml
        DESTINATION share/metainfo COMPONENT program)
install_compressed(program share/man/man1 ${KELVARIN_PACKAGING}/kelvarin/kelvarin.1)
install_documents(program kelvarin)

# ---- The service ---------------------------------------------------------------------------------

set(service_files ${KELVARIN_PACKAGING}/kelvarin-service)
install(TARGETS kelvarin-service RUNTIME DESTINATION bin COMPONENT service)
install(PROGRAMS ${service_files}/kelvarin-service-admin DESTINATION sbin COMPONENT service)
install(PROGRAMS ${service_files}/prepare DESTINATION lib/kelvarin-service COMPONENT service)
install(FILES ${service_files}/kelvarin-service.service
        DESTINATION lib/systemd/system COMPONENT service)
install(FILES ${service_files}/kelvarin-service.default RENAME kelvarin-service
        DESTINATION /etc/default COMPONENT service)
install(FILES ${KELVARIN_PACKAGING}/haproxy.cfg
        DESTINATION share/doc/kelvarin-service/examples COMPONENT service)
install_compressed(service share/man/man1 ${service_files}/kelvarin-service.1)
install_compressed(service share/man/man8 ${service_files}/kelvarin-service-admin.8)
install_documents(service kelvarin-service)

# ---- The packages --------------------------------------------------------------------------------

set(CPACK_GENERATOR DEB)
set(CPACK_COMPONENTS_ALL program service)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS ${CMAKE_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGE_CONTACT "Kelvarin maintainers <maintainers@kelvarin.example>")
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/package_times.cmake)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)

set(CPACK_DEBIAN_PROGRAM_PACKAGE_NAME kelvarin)
set(CPACK_DEBIAN_PROGRAM_PACKAGE_SECTION sound)
set(CPACK_DEBIAN_PROGRAM_PACKAGE_DEPENDS "ca-certificates, fonts-material-design-icons-iconfont")
set(CPACK_DEBIAN_PROGRAM_PACKAGE_RECOMMENDS
    "kelvarin-service, pipewire-pulse | pulseaudio, fonts-noto-core, fonts-noto-cjk, \
fonts-noto-color-emoji")
set(CPACK_COMPONENT_PROGRAM_DESCRIPTION "live captions of speech, with their translation
Kelvarin lets you follow speech in a language that you do not understand. It
listens to the microphone, to what the computer is playing, or to both, and
shows the recognised words with their translation in a small window that stays
above the others. Finished captions are also written to a text file.
.
Recognition and translation are the work of a service: the one of the package
kelvarin-service, on this computer, unless the program was built for another.")

set(CPACK_DEBIAN_SERVICE_PACKAGE_NAME kelvarin-service)
set(CPACK_DEBIAN_SERVICE_PACKAGE_SECTION sound)
set(CPACK_DEBIAN_SERVICE_PACKAGE_DEPENDS
    "adduser, apertium, apertium-eng-spa, apertium-es-pt, apertium-fr-es, apertium-lex-tools, \
apertium-spa-ita, ca-certificates, pocketsphinx-en-us")
set(CPACK_DEBIAN_SERVICE_PACKAGE_CONTROL_EXTRA ${service_files}/conffiles
    ${service_files}/postinst ${service_files}/prerm ${service_files}/postrm)
set(CPACK_COMPONENT_SERVICE_DESCRIPTION "speech translation for Kelvarin, on your own computer
Recognises English speech and translates it into Spanish, Portuguese, French or
Italian. It needs no account anywhere and sends nothing out of the computer.
.
The service runs as a user of its own and listens on this computer's port 443
only. The installation makes a certificate, which the computer trusts from then
on, and a first access key, which it shows.")

include(CPack)
