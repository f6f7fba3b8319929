#!/usr/bin/env bash
# Makes build/sysroot/ARCH (arm64 or armhf): the Debian packages the build links against, for a
# box's architecture, unpacked into a folder rather than installed beside the build machine's
# own (multiarch installs of them need every shared package at one version across
# architectures, which a mirror does not always have). Installs the cross compiler and
# qemu-user, and lets the kernel run the architecture's programs through qemu (binfmt_misc), so
# tests that start other programs run too.
set -euo pipefail
cd "$(dirname "$0")/.."
arch="${1:?usage: scripts/cross-sysroot.sh arm64|armhf}"
case "$arch" in
  arm64) triplet=aarch64-linux-gnu qemu=aarch64 ;;
  armhf) triplet=arm-linux-gnueabihf qemu=arm ;;
  *) echo "unknown architecture $arch (arm64 or armhf)" >&2; exit 2 ;;
esac
root="build/sysroot/$arch"
# The libraries the build links, with what they need at run time; headers that are the same on
# every architecture come as the architecture-independent packages.
dev_packages=(android-libutils-dev android-liblog-dev android-libbase-dev android-libcutils-dev
              libcapnp-dev libgtest-dev libgmock-dev libdvbv5-dev)
all_packages=(nlohmann-json3-dev libcli11-dev libbitstream-dev)

as_root() {
  if [ "$(id -u)" -ne 0 ]; then
    echo "scripts/cross-sysroot.sh $arch: $1 needs root; run it as root once" >&2
    exit 1
  fi
}
export DEBIAN_FRONTEND=noninteractive
missing=()
for p in "g++-$triplet" qemu-user-static; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
update=no
if ! dpkg --print-foreign-architectures | grep -qx "$arch"; then
  as_root "adding the architecture to apt"
  dpkg --add-architecture "$arch"
  update=yes
fi
if [ ${#missing[@]} -gt 0 ] || [ "$update" = yes ]; then
  as_root "installing ${missing[*]:-the package lists}"
  # A mirror in the middle of a sync can fail one index; the others still serve.
  apt-get update -qq || true
  [ ${#missing[@]} -eq 0 ] || apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi

# Programs of the architecture run through qemu, started by the kernel for any process.
binfmt=/proc/sys/fs/binfmt_misc
if [ ! -e "$binfmt/qemu-$qemu" ]; then
  as_root "registering qemu-$qemu with binfmt_misc"
  [ -e "$binfmt/register" ] || mount -t binfmt_misc binfmt_misc "$binfmt"
  cat "/usr/lib/binfmt.d/qemu-$qemu.conf" > "$binfmt/register"
fi

stamp="$root/.packages"
wanted="${dev_packages[*]} ${all_packages[*]}"
if [ -f "$stamp" ] && [ "$(cat "$stamp")" = "$wanted" ]; then
  exit 0
fi
rm -rf "$root"
mkdir -p "$root/debs"
# Everything the -dev packages depend on, of this architecture or of none.
closure=$(apt-cache depends --recurse --no-recommends --no-suggests --no-conflicts --no-breaks \
            --no-replaces --no-enhances "${dev_packages[@]/%/:$arch}" 2>/dev/null |
          grep -v '^ ' | grep -v '^<' | sort -u)
downloads=("${all_packages[@]}")
for p in $closure; do
  case "$p" in
    *:"$arch") downloads+=("$p") ;;
    *:*) ;;
    *) [ "$(apt-cache show --no-all-versions "$p" 2>/dev/null | sed -n 's/^Architecture: //p')" = all ] &&
         downloads+=("$p") ;;
  esac
done
(cd "$root/debs" && apt-get download -qq -o APT::Sandbox::User=root "${downloads[@]}")
for deb in "$root"/debs/*.deb; do dpkg -x "$deb" "$root"; done
rm -rf "$root/debs"
echo "$wanted" > "$stamp"
echo "sysroot for $arch: ${#downloads[@]} packages in $root"
