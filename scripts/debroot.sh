# Helpers for Debian 12 roots of another architecture or of a clean machine,
# sourced by i386.sh and packagetest.sh. Roots live outside the clone so that a
# fresh clone on the same machine reuses them.

cpibcr_cache=${CPIBCR_CACHE:-/var/cache/cpibcr}

# The Debian mirror this machine already uses, read from its apt sources.
debian_mirror() {
  local uri=""
  local f
  for f in /etc/apt/sources.list.d/*.sources; do
    [ -f "$f" ] || continue
    uri=$(awk '
      BEGIN { RS = ""; FS = "\n" }
      {
        u = ""; s = 0
        for (i = 1; i <= NF; i++) {
          if ($i ~ /^URIs:/) { split($i, a, /[ \t]+/); u = a[2] }
          if ($i ~ /^Suites:/ && $i ~ /[ \t]bookworm([ \t]|$)/) s = 1
          if ($i ~ /^Types:/ && $i !~ /[ \t]deb([ \t]|$)/) s = 0
        }
        if (s && u != "") { print u; exit }
      }' "$f")
    [ -n "$uri" ] && break
  done
  if [ -z "$uri" ] && [ -f /etc/apt/sources.list ]; then
    uri=$(awk '$1 == "deb" {
        i = 2; if ($i ~ /^\[/) { while ($i !~ /\]$/) i++; i++ }
        if ($(i + 1) == "bookworm") { print $i; exit }
      }' /etc/apt/sources.list)
  fi
  if [ -z "$uri" ]; then
    echo "no bookworm mirror found in /etc/apt/sources.list.d/*.sources or /etc/apt/sources.list" >&2
    return 1
  fi
  echo "$uri"
}

# Lets the kernel run i386 programs through qemu when it cannot run them itself.
enable_i386() {
  if arch-test i386 >/dev/null 2>&1; then
    return 0
  fi
  if [ ! -e /proc/sys/fs/binfmt_misc/register ]; then
    mount -t binfmt_misc binfmt_misc /proc/sys/fs/binfmt_misc
  fi
  if [ ! -e /proc/sys/fs/binfmt_misc/qemu-i386 ]; then
    # ELF class 32, little endian, executable or shared object, machine 3 (i386);
    # flag F opens the interpreter now so that it also works inside a chroot.
    printf '%s' ':qemu-i386:M::\x7fELF\x01\x01\x01\x00\x00\x00\x00\x00\x00\x00\x00\x00\x02\x00\x03\x00:\xff\xff\xff\xff\xff\xfe\xfe\x00\xff\xff\xff\xff\xff\xff\xff\xff\xfe\xff\xff\xff:/usr/bin/qemu-i386-static:F' \
      >/proc/sys/fs/binfmt_misc/register
  fi
  arch-test i386 >/dev/null
}

# apt-get update in a root, again when a mirror answers with a file in mid-sync; the
# package lists that did arrive stay usable when one index keeps failing.
update_root() {
  local dir=$1 try
  for try in 1 2 3; do
    chroot "$dir" apt-get update && return 0
    sleep $((try * 5))
  done
  echo "warning: apt-get update in $dir failed three times; using the lists it has" >&2
}

# A minimal Debian 12 root of ARCH at DIR, with this machine's apt sources and
# fresh package lists. Made once; marker files record the finished steps, and a lock
# keeps two scripts from making the same root at once.
pristine_root() {
  local arch=$1 dir=$2 lock
  mkdir -p "$(dirname "$dir")"
  exec {lock}>"$dir.lock"
  flock "$lock"
  if [ ! -f "$dir/.cpibcr-complete" ]; then
    make_pristine_root "$arch" "$dir" || { flock -u "$lock"; return 1; }
  fi
  flock -u "$lock"
}

make_pristine_root() {
  local arch=$1 dir=$2
  if [ ! -f "$dir/.cpibcr-bootstrapped" ]; then
    local mirror
    mirror=$(debian_mirror) || return 1
    remove_root "$dir" || return 1
    debootstrap --arch="$arch" --variant=minbase bookworm "$dir" "$mirror" || return 1
    touch "$dir/.cpibcr-bootstrapped"
  fi
  if ls /etc/apt/sources.list.d/*.sources >/dev/null 2>&1; then
    cp /etc/apt/sources.list.d/*.sources "$dir/etc/apt/sources.list.d/" || return 1
    rm -f "$dir/etc/apt/sources.list"
  elif [ -f /etc/apt/sources.list ]; then
    cp /etc/apt/sources.list "$dir/etc/apt/sources.list" || return 1
  fi
  update_root "$dir"
  touch "$dir/.cpibcr-complete"
}

# Mounts what programs in the root need: /proc, /dev with its pseudo-terminals.
mount_root() {
  local dir=$1
  mountpoint -q "$dir/proc" || mount -t proc proc "$dir/proc"
  if ! mountpoint -q "$dir/dev"; then
    mount --rbind /dev "$dir/dev"
    mount --make-rslave "$dir/dev"
  fi
}

# Binds a host folder into the root at the same path.
bind_into_root() {
  local dir=$1 path=$2
  mkdir -p "$dir$path"
  mountpoint -q "$dir$path" || mount --bind "$path" "$dir$path"
}

unmount_root() {
  local dir=$1 m
  # Deepest first.
  for m in $(awk -v d="$dir" '$2 == d || index($2, d "/") == 1 { print $2 }' /proc/self/mounts | sort -r); do
    umount -l "$m" 2>/dev/null || true
  done
}

# Removes a root made by these helpers, never while anything is still mounted inside it
# (a bound /dev would go with it).
remove_root() {
  local dir=$1
  [ -e "$dir" ] || return 0
  unmount_root "$dir"
  if awk -v d="$dir" '$2 == d || index($2, d "/") == 1 { found = 1 } END { exit !found }' /proc/self/mounts; then
    echo "still mounted inside $dir; not removing it" >&2
    return 1
  fi
  rm -rf --one-file-system "$dir"
}

# A fresh root of ARCH at DIR, copied from the cached pristine one.
fresh_root() {
  local arch=$1 dir=$2
  pristine_root "$arch" "$cpibcr_cache/$arch-pristine"
  remove_root "$dir"
  cp -a "$cpibcr_cache/$arch-pristine" "$dir"
}

# Runs a command in the root with a clean environment.
in_root() {
  local dir=$1
  shift
  chroot "$dir" /usr/bin/env -i PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin \
    HOME=/root LANG=C.UTF-8 DEBIAN_FRONTEND=noninteractive "$@"
}
