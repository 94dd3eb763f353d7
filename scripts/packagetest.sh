#!/usr/bin/env bash
# Installs a built package into a fresh Debian 12 root of its architecture, as a machine
# without the project would: dpkg -i, then apt-get -f install for the dependencies. Runs the
# installed tool against its built-in simulator and checks that lintian finds no error and
# that no program or library in it, or in the -dev package beside it, carries a run path.
#   packagetest.sh DEB
set -euo pipefail
deb=$(readlink -f "$1")
cd "$(dirname "$0")/.."
source scripts/debroot.sh

arch=$(dpkg-deb -f "$deb" Architecture)
name=$(basename "$deb")
[ "$(id -u)" -eq 0 ] || { echo "packagetest.sh needs root (debootstrap, chroot, mounts)" >&2; exit 1; }
[ "$arch" = "$(dpkg --print-architecture)" ] || [ "$arch" != i386 ] || enable_i386

root=$cpibcr_cache/$arch-pkgtest
archives=$cpibcr_cache/$arch-archives
fresh_root "$arch" "$root"
# The root is thrown away after the run: dpkg need not sync each file to disk.
echo force-unsafe-io >"$root/etc/dpkg/dpkg.cfg.d/cpibcr-unsafe-io"
trap 'unmount_root "$root"' EXIT
mount_root "$root"
# Downloaded packages are kept between runs; the root itself is thrown away.
mkdir -p "$archives/partial"
mount --bind "$archives" "$root/var/cache/apt/archives"

fail() {
  echo "package test ($arch): $*" >&2
  exit 1
}

cp "$deb" "$root/tmp/$name"
echo "== dpkg -i $name"
in_root "$root" dpkg -i "/tmp/$name" || true
echo "== apt-get -f install"
in_root "$root" apt-get -f install -y --no-install-recommends
in_root "$root" dpkg-query -W -f='${Status}\n' cpibcr | grep -qx 'install ok installed' ||
  fail "cpibcr is not installed"

version=$(dpkg-deb -f "$deb" Version)
[ "$(in_root "$root" cpibcr --version)" = "cpibcr $version" ] || fail "cpibcr --version"
[ "$(in_root "$root" cpibcr-sim --version)" = "cpibcr-sim $version" ] || fail "cpibcr-sim --version"
for page in cpibcr cpibcr-sim cpibcr-panel; do
  [ -f "$root/usr/share/man/man1/$page.1.gz" ] || fail "manual page $page.1 missing"
done

echo "== cpibcr status"
status=$(in_root "$root" cpibcr status) || fail "cpibcr status failed"
echo "$status"
grep -q '^state *ok$' <<<"$status" || fail "cpibcr status: state is not ok"
grep -q '(built-in simulator)' <<<"$status" || fail "cpibcr status: not the built-in simulator"

echo "== cpibcr --json units"
units=$(in_root "$root" cpibcr --json units) || fail "cpibcr --json units failed"
python3 -c '
import json, sys
doc = json.loads(sys.argv[1])
units = doc["units"]
assert doc["command"] == "units", doc
assert len(units) > 0, "no units"
print(len(units), "units:", ", ".join(u["name"] for u in units))
' "$units" || fail "cpibcr --json units: unexpected document"

echo "== run paths"
# A run path of the build machine would let its folders, or for an empty entry the working
# directory, supply the libraries the programs and the plug-in load.
unpacked=$(mktemp -d)
elves=0
for package in "$deb" "$(dirname "$deb")/cpibcr-dev_${version}_${arch}.deb"; do
  [ -f "$package" ] || continue
  dpkg-deb -x "$package" "$unpacked"
done
while IFS= read -r -d '' file; do
  head -c 4 "$file" | grep -q $'^\x7fELF' || continue
  elves=$((elves + 1))
  runpath=$(readelf -d "$file" | grep -E '\((RPATH|RUNPATH)\)' || true)
  [ -z "$runpath" ] || { rm -rf "$unpacked"; fail "${file#"$unpacked"} carries a run path: $runpath"; }
done < <(find "$unpacked" -type f -print0)
rm -rf "$unpacked"
[ "$elves" -ge 3 ] || fail "only $elves ELF files in the package"
echo "$elves ELF files, none with a run path"

echo "== lintian"
lintian --fail-on error "$deb" || fail "lintian reports errors"
echo "package test ($arch): passed"
