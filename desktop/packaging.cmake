# The Debian package: `cpack -G DEB` in a build configured with CMAKE_INSTALL_PREFIX=/usr
# (scripts/package does that and checks the result). It holds what `cmake --install` installs,
# the copyright and changelog Debian asks for, and depends on the libraries the binaries link
# (found by dpkg-shlibdeps) plus what the program loads or runs without linking it.

set(QUIRE_MAINTAINER "The Quire developers <maintainers@quire.example.org>" CACHE STRING
    "The Maintainer field of the Debian package")

set(QUIRE_DOCDIR ${CMAKE_INSTALL_DATADIR}/doc/quire)
install(FILES desktop/debian-copyright DESTINATION ${QUIRE_DOCDIR} RENAME copyright)
execute_process(COMMAND date -u -R -d "${QUIRE_RELEASE_DATE} 12:00"
                OUTPUT_VARIABLE QUIRE_RELEASE_RFC2822 OUTPUT_STRIP_TRAILING_WHITESPACE)
configure_file(desktop/debian-changelog.in changelog @ONLY)
add_custom_command(OUTPUT changelog.gz
                   COMMAND gzip -9 -n -f -k changelog
                   DEPENDS ${CMAKE_BINARY_DIR}/changelog
                   VERBATIM)
add_custom_target(quire_changelog ALL DEPENDS changelog.gz)
install(FILES ${CMAKE_BINARY_DIR}/changelog.gz DESTINATION ${QUIRE_DOCDIR})

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME quire)
set(CPACK_PACKAGE_VENDOR "The Quire developers")
set(CPACK_PACKAGE_CONTACT "${QUIRE_MAINTAINER}")
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT) # quire_<version>_<arch>.deb
set(CPACK_DEBIAN_PACKAGE_SECTION graphics)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE ${QUIRE_HOMEPAGE})
# The first line is the synopsis; CPack indents the rest and marks the empty line.
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
    "batch work on PDF files: merge, split, crop, watermark
Quire is a desktop utility for batch work on PDF documents. A launcher opens
five tools, each with an ordered list of documents: Merge joins them into one
file, Split cuts each into files by runs of pages or at page intervals, Crop
cuts pages to one rectangle, Watermark stamps a text and a picture, and Edit
PDF Properties rewrites title, author, subject and keywords from templates.
Crop and Watermark show a live preview of the page.

Pages are copied as they are, and no document is ever damaged: every output
is written to a temporary file and renamed over its target only when
complete. The same tools run headless from the command line (quire merge,
quire split, ...), so that batches can be scripted.")
# dpkg-shlibdeps follows the binaries' $ORIGIN run paths to Quire's own libraries in the
# package, and asks for the packages of the others.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# Loaded or run without being linked: the picture formats (SVG, TIFF, WebP), the fonts the
# watermark's font list resolves to (Arial, Times New Roman and Courier New to Liberation,
# Helvetica to URW's Nimbus Sans, Comic Sans MS to Comic Neue, the rest to DejaVu), and
# xdg-open, which opens the help pages, folders and documents.
set(CPACK_DEBIAN_PACKAGE_DEPENDS
    "libqt6svg6, qt6-image-formats-plugins, fonts-liberation, fonts-dejavu-core, fonts-urw-base35, fonts-comic-neue, xdg-utils")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "qt6-wayland")
include(CPack)
