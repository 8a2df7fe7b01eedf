# `make package`: a Debian package of what `cmake --install` lays out, under /usr. Its library
# dependencies come from the binaries (dpkg-shlibdeps); the ones no binary names (GStreamer's
# plugins, Qt's X11 platform plugin, the English text model) are listed here.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME varnel)
set(CPACK_PACKAGE_VENDOR "The Varnel developers")
set(CPACK_PACKAGE_CONTACT "The Varnel developers <hello@varnel.app>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "collect and study the screens of mobile apps")
# Debian's long description; CPack puts the summary above it and indents it.
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
    "Varnel captures a phone's or an emulator's screen as still screens and short
clips and files each capture run as a flow of an application and a category
in a plain folder library. Around it: search by the text on every screen,
blur zones that keep the untouched original, comment pins, export to Figma
with two-way comment sync, and a command line, varnel-cli.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
# The first packaging of each version: Debian names a package's changelog changelog.Debian.gz
# only when its version carries such a revision.
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION graphics)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE https://varnel.app/)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS
    "qt6-qpa-plugins, gstreamer1.0-plugins-base, gstreamer1.0-plugins-good, gstreamer1.0-plugins-bad, gstreamer1.0-plugins-ugly, gstreamer1.0-libav, tesseract-ocr-eng")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS
    "adb, apertium, apertium-eng-spa, gnome-keyring, gstreamer1.0-pipewire, sound-theme-freedesktop, tesseract-ocr-fra, tesseract-ocr-kor, xdg-utils")
include(CPack)
