#!/usr/bin/env bash
# Cross-builds the libraries that the Windows wizard window needs -- expat,
# libpng, libjpeg-turbo and wxWidgets for MSW -- from Debian's own source
# packages, as static libraries for mingw-w64, into a cache outside the work
# tree:
#
#   ${QLUX_WIN_DEPS_CACHE:-/var/cache/qlux/win-deps}/<key>/{include,lib,bin}
#
# The key names the four source versions, the compiler's version and the
# recipe's number, so a new Debian point release builds a new cache beside
# the old one. A complete
# cache holds the file "complete"; then this script only prints its path.
# The file is written only after every library is installed, so an
# interrupted build is never taken for a complete one: the next run starts
# that directory afresh.
#
# The only output on standard output is the cache's path; progress goes to
# standard error and each library's build log into the cache's "logs".
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)

say() { echo "win-deps: $*" >&2; }
sudo=""
[ "$(id -u)" -ne 0 ] && sudo="sudo"

host=x86_64-w64-mingw32
cc=$host-gcc-posix
cxx=$host-g++-posix

# The versions come from the installed native packages built from the same
# sources, so the key is known without any network access.
source_version() {
  dpkg-query -W -f='${source:Version}' "$1" 2>/dev/null
}
wx_version=$(source_version libwxgtk3.2-dev)
expat_version=$(source_version libexpat1-dev)
png_version=$(source_version libpng-dev)
jpeg_version=$(source_version libjpeg62-turbo-dev)
gcc_version=$($cxx -dumpversion 2>/dev/null || true)
for v in wx_version expat_version png_version jpeg_version gcc_version; do
  if [ -z "${!v}" ]; then
    say "can't tell ${v%_version}'s version: run scripts/setup.sh first"
    exit 1
  fi
done
# The recipe's number goes up whenever a change below gives other libraries.
recipe=3
key=$(printf 'wx%s_expat%s_png%s_jpeg%s_gcc%s_r%s' "$wx_version" "$expat_version" \
        "$png_version" "$jpeg_version" "$gcc_version" "$recipe" | tr ':~' '..')

cache_root=${QLUX_WIN_DEPS_CACHE:-/var/cache/qlux/win-deps}
prefix="$cache_root/$key"
# libdeflate, which the package reader inflates with, came after the four
# libraries above. It is built into the same cache by a step of its own,
# with its own marker, so that adding it cost no rebuild of the others. A
# failure here is only a warning: the Windows build then inflates with zlib.
add_libdeflate() {
  local version
  version=$(source_version libdeflate-dev)
  [ -n "$version" ] || { say "libdeflate-dev is not installed: run scripts/setup.sh"; return 0; }
  local marker="$prefix/complete-libdeflate-${version//[:~]/.}-r1"
  [ -f "$marker" ] && return 0
  (
    # One build at a time, whoever runs this script.
    flock 9
    [ -f "$marker" ] && exit 0
    local build
    build=$(mktemp -d "$cache_root/libdeflate-build.XXXXXX")
    trap 'rm -rf "$build"' EXIT
    say "building libdeflate $version"
    cd "$build"
    apt-get source -q --only-source "libdeflate=$version" >"$build/source.log" 2>&1 ||
      { say "no source of libdeflate $version could be fetched; Windows inflates with zlib"; exit 0; }
    src=$(find "$build" -mindepth 1 -maxdepth 1 -type d -name 'libdeflate-*' | head -1)
    make -C "$src" -j "${QLUX_BUILD_JOBS:-$(nproc)}" CC=$cc AR=$host-ar libdeflatestatic.lib >"$build/build.log" 2>&1 ||
      { say "libdeflate failed to build; Windows inflates with zlib"; tail -20 "$build/build.log" >&2; exit 0; }
    mkdir -p "$prefix/include" "$prefix/lib"
    install -m644 "$src/libdeflate.h" "$prefix/include/"
    install -m644 "$src/libdeflatestatic.lib" "$prefix/lib/"
    echo "libdeflate_$version.dsc" >>"$prefix/versions"
    date -u +%FT%TZ >"$marker"
  ) 9>"$cache_root/.libdeflate.lock"
}

if [ -f "$prefix/complete" ]; then
  add_libdeflate
  echo "$prefix"
  exit 0
fi

# --- sources -----------------------------------------------------------------
need=()
for p in dpkg-dev make autoconf automake libtool; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || need+=("$p")
done
if [ ${#need[@]} -gt 0 ]; then
  say "installing ${need[*]}"
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${need[@]}" >/dev/null
fi

has_deb_src() {
  grep -rqsE '^[[:space:]]*(deb-src[[:space:]]|Types:.*deb-src)' \
    /etc/apt/sources.list /etc/apt/sources.list.d/*.list /etc/apt/sources.list.d/*.sources
}
if ! has_deb_src; then
  # Source entries for the archive that the machine already uses.
  say "adding deb-src entries for the configured Debian archive"
  if [ -f /etc/apt/sources.list.d/debian.sources ]; then
    sed 's/^Types:.*/Types: deb-src/' /etc/apt/sources.list.d/debian.sources |
      $sudo tee /etc/apt/sources.list.d/qlux-deb-src.sources >/dev/null
  else
    grep -hE '^[[:space:]]*deb[[:space:]]' /etc/apt/sources.list /etc/apt/sources.list.d/*.list 2>/dev/null |
      sed 's/^[[:space:]]*deb[[:space:]]/deb-src /' |
      $sudo tee /etc/apt/sources.list.d/qlux-deb-src.list >/dev/null
  fi
  $sudo apt-get update -qq
fi

$sudo mkdir -p "$cache_root"
[ -w "$cache_root" ] || $sudo chown "$(id -u):$(id -g)" "$cache_root"
work="$prefix"
rm -rf "$work"
mkdir -p "$work/src" "$work/logs"
jobs=${QLUX_BUILD_JOBS:-$(nproc)}
cd "$work/src"

# fetch SOURCE VERSION: unpacks the Debian source into $work/src. The archive
# may have moved on since the native packages were installed (a security
# update); then the newest source of that package is taken, and "versions"
# in the cache says which one was built.
fetch() {
  local log="$work/logs/$1-source.log"
  say "getting $1 $2"
  if ! (cd "$work/src" && apt-get source -q --only-source "$1=$2" >"$log" 2>&1); then
    local v got=""
    for v in $(apt-cache showsrc --only-source "$1" | sed -n 's/^Version: //p' | sort -rV); do
      rm -rf "$work/src"/"$1"[-_]*
      if (cd "$work/src" && apt-get source -q --only-source "$1=$v" >>"$log" 2>&1); then
        got=$v
        break
      fi
    done
    if [ -z "$got" ]; then
      say "no source of $1 could be fetched:"
      tail -20 "$log" >&2
      exit 1
    fi
    say "$1 $2 is no longer in the archive; took $got"
  fi
  find "$work/src" -maxdepth 1 -name "$1_*.dsc" -printf '%f\n' >>"$work/versions"
}
unpacked() {  # the directory that apt-get source made for SOURCE
  find "$work/src" -mindepth 1 -maxdepth 1 -type d -name "$1-*" | head -1
}
run_logged() {  # run_logged NAME COMMAND...: the command's output goes to its log
  local name=$1
  shift
  if ! "$@" >>"$work/logs/$name.log" 2>&1; then
    say "$name failed; the end of its log:"
    tail -40 "$work/logs/$name.log" >&2
    exit 1
  fi
}

export PKG_CONFIG_LIBDIR="$work/lib/pkgconfig"
export CPPFLAGS="-I$work/include -DXML_STATIC"
export LDFLAGS="-L$work/lib"
# Everything here ends up in the installer that a user downloads: built for
# size, each function in a section of its own so that the program's link
# keeps only what it calls.
size_flags="-ffunction-sections -fdata-sections -Os"

# --- expat -------------------------------------------------------------------
fetch expat "$expat_version"
say "building expat"
src=$(unpacked expat)
[ -f "$src/expat/configure.ac" ] && src="$src/expat"
(cd "$src" &&
  run_logged expat ./buildconf.sh &&
  run_logged expat ./configure --host=$host CC=$cc CXX=$cxx CFLAGS="$size_flags" --prefix="$work" \
    --disable-shared --enable-static --without-docbook --without-examples \
    --without-tests --without-xmlwf &&
  run_logged expat make -j "$jobs" &&
  run_logged expat make install)

# --- libpng ------------------------------------------------------------------
fetch libpng1.6 "$png_version"
say "building libpng"
src=$(unpacked libpng1.6)
(cd "$src" &&
  run_logged libpng ./configure --host=$host CC=$cc CFLAGS="$size_flags" --prefix="$work" \
    --disable-shared --enable-static --disable-tools &&
  run_logged libpng make -j "$jobs" &&
  run_logged libpng make install)

# --- libjpeg-turbo -----------------------------------------------------------
fetch libjpeg-turbo "$jpeg_version"
say "building libjpeg-turbo"
src=$(unpacked libjpeg-turbo)
run_logged libjpeg cmake -S "$src" -B "$work/src/jpeg-build" -G Ninja \
  -DCMAKE_TOOLCHAIN_FILE="$top/cmake/mingw-w64.cmake" -DCMAKE_BUILD_TYPE=MinSizeRel \
  -DCMAKE_C_FLAGS="-ffunction-sections -fdata-sections" \
  -DCMAKE_INSTALL_PREFIX="$work" -DCMAKE_INSTALL_LIBDIR="$work/lib" \
  -DCMAKE_INSTALL_BINDIR="$work/bin" -DCMAKE_INSTALL_INCLUDEDIR="$work/include" \
  -DCMAKE_INSTALL_DATAROOTDIR="$work/share" -DENABLE_SHARED=OFF -DENABLE_STATIC=ON -DWITH_TURBOJPEG=OFF -DWITH_SIMD=OFF \
  -DWITH_JAVA=OFF
run_logged libjpeg ninja -C "$work/src/jpeg-build" -j "$jobs"
run_logged libjpeg ninja -C "$work/src/jpeg-build" install

# --- wxWidgets for MSW -------------------------------------------------------
# The wizard window is most of what the installer weighs, so the toolkit is
# built for size as above, without assertion texts, and with only the parts the
# window uses. The window needs frames, panels, the common controls (buttons,
# check boxes, radio buttons, static text, text fields, gauges, the list
# control), the message box and the folder dialog (which configure ties to the
# tree control); the licence page's wxRichTextCtrl needs wxHTML, XML, the
# caret, the clipboard, and the controls of its own dialogs (notebook, spin,
# combo, list box, radio box, colour and font dialogs, text entry). What is
# switched off below is none of these: network, archives, help, printing,
# document/view, accessibility, drag and drop, the graphics context (the
# window draws through plain DCs), standard C++ streams (a text control would
# otherwise be a std::streambuf and drag in the C++ locale), the command line
# parser, configuration storage, and the controls and dialogs no page shows.
fetch wxwidgets3.2 "$wx_version"
say "building wxWidgets for MSW (about 10 minutes on two cores)"
src=$(unpacked wxwidgets3.2)
mkdir -p "$work/src/wx-build"
(cd "$work/src/wx-build" &&
  CFLAGS="$size_flags" CXXFLAGS="$size_flags" \
  run_logged wxwidgets "$src/configure" --host=$host CC=$cc CXX=$cxx --prefix="$work" \
    --with-msw --disable-shared --with-zlib=sys --with-expat=sys \
    --without-libpng --without-libjpeg --without-libtiff --without-regex \
    --without-liblzma --without-nanosvg \
    --enable-html --enable-richtext --disable-svg --disable-webview \
    --disable-mediactrl --without-opengl --disable-xrc --disable-stc --disable-aui \
    --disable-propgrid --disable-ribbon --disable-tests --without-subdirs \
    --disable-debug --disable-std_iostreams --disable-accessibility \
    --disable-graphics_ctx --disable-dnd --disable-cmdline --disable-mimetype \
    --disable-config --disable-filehistory \
    --disable-protocols --disable-sockets --disable-ipc --disable-url --disable-fs_inet \
    --disable-webrequest --disable-fs_zip --disable-fs_archive --disable-zipstream \
    --disable-tarstream --disable-arcstream --disable-dialupman --disable-debugreport \
    --disable-fswatcher --disable-secretstore --disable-snglinst --disable-sound \
    --disable-joystick --disable-spellcheck --disable-backtrace --disable-catch_segvs \
    --disable-docview --disable-mdi --disable-mdidoc --disable-help --disable-mshtmlhelp \
    --disable-htmlhelp --disable-postscript --disable-printarch --disable-uiactionsim \
    --disable-loggui --disable-logwin --disable-logdialog \
    --disable-actindicator --disable-addremovectrl --disable-animatectrl \
    --disable-bannerwindow --disable-bmpcombobox --disable-calendar --disable-choicebook \
    --disable-collpane --disable-commandlinkbutton --disable-dataviewctrl --disable-datepick \
    --disable-timepick --disable-detect_sm --disable-dirpicker --disable-filepicker \
    --disable-fontpicker --disable-editablebox --disable-filectrl --disable-grid \
    --disable-headerctrl --disable-hyperlink --disable-infobar --disable-listbook \
    --disable-notifmsg --disable-prefseditor --disable-privatefonts --disable-richmsgdlg \
    --disable-richtooltip --disable-rearrangectrl --disable-sash --disable-searchctrl \
    --disable-splitter --disable-taskbaricon --disable-taskbarbutton --disable-tipwindow \
    --disable-toolbook --disable-treebook --disable-treelist --disable-aboutdlg \
    --disable-creddlg --disable-finddlg --disable-numberdlg --disable-splash --disable-tipdlg \
    --disable-wizarddlg --disable-progressdlg --disable-busyinfo --disable-miniframe \
    --disable-dragimage --disable-gif --disable-pcx --disable-tga --disable-iff --disable-pnm &&
  run_logged wxwidgets make -j "$jobs" &&
  run_logged wxwidgets make install)

# The sources and build trees are not needed again; the logs stay.
cd "$work"
rm -rf "$work/src"
date -u +%FT%TZ >"$work/complete"
add_libdeflate
say "ready in $prefix"
echo "$prefix"
