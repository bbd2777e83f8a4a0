# The Debian package. make-deb builds the preset "package" and runs CPack.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME orvel-agent)
set(CPACK_PACKAGE_CONTACT "Orvel Agent developers <support@orvel.example>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "desktop agent that sends your message history to your account")
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
    "Reads the Messages history of this computer from a private copy and sends it
to your own account, where your assistant uses it as context. You decide how
much is sent: timing and participants only, or also the text; every
conversation, or only those with people your assistant already knows.
.
The agent works in the background and has an icon in the notification area.
The package also contains orvel-scan, which runs a single scan from the command
line.")
set(CPACK_PACKAGE_HOMEPAGE_URL https://${ORVEL_WEB_HOST}/)
set(CPACK_STRIP_FILES ON)
set(CPACK_THREADS 0)
# Do not depend on the umask of the build.
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_SECTION net)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# dpkg-shlibdeps finds linked libraries only: not the certificates or libraries loaded with dlopen.
set(CPACK_DEBIAN_PACKAGE_DEPENDS "ca-certificates, libcurl4 (>= 7.85.0), libebook-1.2-21, libssl3 (>= 3.0.0)")
# For opening the browser, storing the session, the address book, and Wayland displays.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS
    "xdg-utils, dbus-user-session | dbus-x11, gnome-keyring | keepassxc, evolution-data-server, qt6-wayland")

include(CPack)
