# A Debian package: `cpack -G DEB` in a build tree. The libraries' packages are
# found by dpkg-shlibdeps from what the programs link; the programs Velmora runs
# as child processes and the GStreamer elements it loads are listed by hand.
set(CPACK_PACKAGE_NAME velmora)
set(CPACK_PACKAGE_VENDOR Dorvane)
set(CPACK_PACKAGE_CONTACT "Velmora developers <velmora@dorvane.com>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Keep, play, tag, convert, rip and burn your music")
set(CPACK_PACKAGE_DESCRIPTION
    "Velmora keeps a library of music files and converts them to MP3, AAC, Ogg Vorbis, WMA, MP2 or WAV, "
    "rips audio CDs named from CDDB, plays files and discs, and writes tags and artwork without ever rewriting "
    "a file in place. velmora-cli runs the same engine from scripts.")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION sound)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE https://www.dorvane.com/velmora/)
set(CPACK_DEBIAN_PACKAGE_DEPENDS
    "lame, twolame, ffmpeg, sox, mplayer, atomicparsley, cd-paranoia, genisoimage, unzip, gstreamer1.0-plugins-base, gstreamer1.0-plugins-good, gstreamer1.0-plugins-bad, gstreamer1.0-libav")
# Flash players are found and erased through UDisks2, or with mkfs.vfat without it.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "udisks2, dosfstools")
set(CPACK_GENERATOR DEB)
include(CPack)
