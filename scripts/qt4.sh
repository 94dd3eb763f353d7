#!/usr/bin/env bash
# Builds the terminal's libraries, Qt 4.8.6 (QtCore, QtTest, moc, qmake) and Log4Qt 0.3 as one
# shared liblog4qt.so.1, for i386 into a cached prefix, once. The sources are the archives in
# ../shared/thirdparty or in the folder named by CPIBCR_QT4_SOURCES.
#
#   qt4.sh            build if the prefix is missing or was built from other archives or steps;
#                     print the prefix on the last line
#   qt4.sh --check    exit 3 when no archives are to be found, 0 when they are
#
# Three things make Qt 4.8.6 usable with Debian 12's g++ 12:
# - syncqt stops at the first Qt module whose folder the archive leaves out;
# - configure turns "g++ -dumpversion" (12) into the build key "g++-12", while the terminal's
#   loader accepts only "i386 linux g++-4 full-config": every g++ from 4 up maps to "4", as
#   distributions did for g++ 5 and later (the C++ ABI did not change);
# - Q_FOREACH for GCC breaks out of a statement expression in the for increment, which g++ >= 9
#   compiles into a loop that stops after the first element; Log4Qt's layouts use it
#   everywhere. The GCC variant is rewritten with a flag the inner loop clears.
# The prefix records the archives' checksums and this script's own; anything else rebuilds.
set -euo pipefail
cd "$(dirname "$0")/.."
src=$PWD
source scripts/debroot.sh

sources=${CPIBCR_QT4_SOURCES:-$src/../shared/thirdparty}
qt_archive=$sources/qt-4.8.6-core.tar.xz
log4qt_archive=$sources/log4qt-0.3.tar.xz
if [ ! -f "$qt_archive" ] || [ ! -f "$log4qt_archive" ]; then
  [ "${1:-}" = --check ] && exit 3
  echo "no Qt 4.8.6 and Log4Qt archives in $sources (set CPIBCR_QT4_SOURCES)" >&2
  exit 3
fi
[ "${1:-}" = --check ] && exit 0

prefix=${CPIBCR_QT4_PREFIX:-$cpibcr_cache/qt4-i386}
stamp=$( (sha256sum "$qt_archive" "$log4qt_archive" | cut -d' ' -f1; sha256sum "$0" | cut -d' ' -f1) | sha256sum | cut -d' ' -f1)
if [ -f "$prefix/.cpibcr-stamp" ] && [ "$(cat "$prefix/.cpibcr-stamp")" = "$stamp" ]; then
  echo "== Qt 4.8.6 and Log4Qt for i386: cached in $prefix"
  echo "$prefix"
  exit 0
fi

[ "$(id -u)" -eq 0 ] || { echo "qt4.sh needs root (it registers qemu-user for i386 programs)" >&2; exit 1; }
bash scripts/setup.sh --dev
# qmake and moc are i386 programs; a kernel without 32-bit execution runs them through qemu.
enable_i386

jobs=$(nproc)
work=$(mktemp -d "${TMPDIR:-/tmp}/cpibcr-qt4.XXXXXX")
trap 'rm -rf "$work"' EXIT
started=$SECONDS
echo "== Qt 4.8.6 and Log4Qt for i386 into $prefix"
rm -rf "$prefix"
tar -C "$work" -xf "$qt_archive"
tar -C "$work" -xf "$log4qt_archive"
qt=$work/qt-4.8.6

perl -0pi -e 's/(\@modules_to_sync = keys\(%modules\) if)/foreach my \$m (keys %modules) { delete \$modules{\$m} unless -d \$modules{\$m}; }\n$1/' \
  "$qt/bin/syncqt"
grep -q 'delete \$modules{\$m}' "$qt/bin/syncqt"

perl -0pi -e 's/(COMPILER_VERSION="3\.\*"\n        ;;\n)    4\.\*\)/$1    4.*|[5-9]|[5-9].*|[1-9][0-9]|[1-9][0-9].*)/' "$qt/configure"
grep -q '4\.\*|\[5-9\]' "$qt/configure"

perl -0pi -e 's/for \(QForeachContainer<__typeof__\(container\)> _container_\(container\); \\\n     !_container_\.brk && _container_\.i != _container_\.e;              \\\n     __extension__  \(\{ \+\+_container_\.brk; \+\+_container_\.i; \}\)\)                       \\\n    for \(variable = \*_container_\.i;; __extension__ \(\{--_container_\.brk; break;\}\)\)/for (QForeachContainer<__typeof__(container)> _container_(container); \\\n     !_container_.brk && _container_.i != _container_.e; \\\n     ++_container_.i, _container_.brk ^= 1) \\\n    for (variable = *_container_.i; !_container_.brk; _container_.brk = 1)/' \
  "$qt/src/corelib/global/qglobal.h"
grep -q '_container_.brk ^= 1' "$qt/src/corelib/global/qglobal.h"

echo 'QMAKE_CXXFLAGS += -std=gnu++98' >>"$qt/mkspecs/common/g++-base.conf"

(
  cd "$qt"
  ./configure -opensource -confirm-license -prefix "$prefix" -release -shared -platform linux-g++-32 \
    -no-gui -no-webkit -no-script -no-scripttools -no-declarative -no-xmlpatterns -no-multimedia \
    -no-audio-backend -no-phonon -no-svg -no-qt3support -no-opengl -no-dbus -no-glib -no-openssl \
    -no-cups -no-nis -nomake examples -nomake demos -nomake tools -nomake docs -nomake translations \
    -no-accessibility -no-sql-sqlite -qt-zlib -silent
  grep -q '"i386 linux g++-4 full-config"' src/corelib/global/qconfig.h
  make -C src/tools/bootstrap -j"$jobs" >/dev/null
  for d in src/tools/moc src/corelib src/testlib; do
    make -C "$d" -j"$jobs" >/dev/null
    make -C "$d" install >/dev/null
  done
  make install_qmake install_mkspecs >/dev/null
  # install_mkspecs copies the folder listing configure's qmake took. Under qemu-user that
  # i386 qmake reads ext4 folders with 64-bit positions it cannot hold and lists nothing,
  # so the mkspecs folder is copied here, as install_mkspecs would (modules left out).
  tar -C mkspecs --exclude=./modules -cf - . | tar -C "$prefix/mkspecs" -xf -
  [ -f "$prefix/mkspecs/linux-g++-32/qmake.conf" ] && [ -d "$prefix/mkspecs/features" ]
)
echo "== Qt 4.8.6 built at $((SECONDS - started)) s"

# One shared library, as the host has it: the host's configuration then governs every logger
# in the process, the plug-in's included.
mkdir -p "$work/log4qt-build"
cat >"$work/log4qt-build/log4qt.pro" <<EOF
TEMPLATE = lib
TARGET = log4qt
VERSION = 1.0.0
QT = core
CONFIG += release
include($work/log4qt-0.3/src/log4qt/log4qt.pri)
target.path = $prefix/lib
INSTALLS += target
EOF
(
  cd "$work/log4qt-build"
  "$prefix/bin/qmake" log4qt.pro
  make -j"$jobs" >/dev/null
  make install >/dev/null
)
(
  cd "$work/log4qt-0.3/src"
  find log4qt -name '*.h' -exec install -D -m 644 {} "$prefix/include/{}" \;
)
install -D -m 644 "$work/log4qt-0.3/LICENSE-2.0.txt" "$prefix/share/log4qt/LICENSE-2.0.txt"
install -D -m 644 "$work/log4qt-0.3/NOTICE.txt" "$prefix/share/log4qt/NOTICE.txt"

file -L "$prefix/lib/libQtCore.so.4" | grep -q 'ELF 32-bit LSB .* Intel 80386'
file -L "$prefix/lib/liblog4qt.so.1" | grep -q 'ELF 32-bit LSB .* Intel 80386'
echo "$stamp" >"$prefix/.cpibcr-stamp"
echo "== Qt 4.8.6 and Log4Qt built in $((SECONDS - started)) s"
echo "$prefix"
