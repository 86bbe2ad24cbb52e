# Shared by scripts/run and scripts/test (sourced): the Debian packages Quire needs, and the
# CMake configure and build of one build folder.

QUIRE_ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

# To build and run Quire: compiler, Qt 6 with QtPdf, qpdf, picture formats, and the fonts the
# watermark's font list resolves to.
QUIRE_PACKAGES=(build-essential cmake ninja-build ccache pkg-config
    qt6-base-dev qt6-pdf-dev libqpdf-dev libjemalloc-dev libxxhash-dev qt6-image-formats-plugins
    libqt6svg6 fonts-liberation fonts-dejavu-core fonts-comic-neue fonts-urw-base35 xdg-utils)
# To test it: qpdf and poppler's tools read back what Quire wrote; clang builds the fuzzers; the
# validators of the desktop entry and the AppStream file, man and bash-completion check the
# manual page and the completion.
QUIRE_TEST_PACKAGES=(qpdf poppler-utils clang libclang-rt-14-dev
    desktop-file-utils appstream man-db bash-completion)

# Installs whichever of the given packages are missing (through sudo when not root); nothing
# when all are present.
quire_ensure_packages() {
    local missing=() pkg
    for pkg in "$@"; do
        dpkg-query -W -f='${Status}\n' "$pkg" 2>/dev/null | grep -q ' installed$' || missing+=("$pkg")
    done
    [ ${#missing[@]} -eq 0 ] && return 0
    local sudo=()
    [ "$(id -u)" -ne 0 ] && sudo=(sudo)
    echo "Installing ${missing[*]}" >&2
    "${sudo[@]}" apt-get update -q >&2
    "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -q "${missing[@]}" >&2
}

# quire_build DIR [cmake options...]: configures (once) and builds DIR; output on stderr.
quire_build() {
    local dir=$1
    shift
    if [ ! -f "$dir/build.ninja" ]; then
        cmake -S "$QUIRE_ROOT" -B "$dir" -G Ninja "$@" >&2
    fi
    cmake --build "$dir" -j "$(nproc)" >&2
}
