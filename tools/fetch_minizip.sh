#!/bin/sh
# Fetches minizip's sources into build/minizip: Debian has the library for Linux alone, and the
# Windows program carries it along. The distribution's source package is taken, so what is built is
# what the Linux program is linked with, security fixes included, and apt verifies it. The machine's
# own package configuration stays as it is: a private one names the same mirrors for sources.
cd "$(dirname -- "$0")/.." || exit 1
. tools/setup.sh
target=build/minizip
[ -f "$target/zip.c" ] && exit 0

need dpkg-source dpkg-dev
install_missing

work=$(pwd)/build/minizip-package
rm -rf "$work"
mkdir -p "$work/lists/partial"
release=$(sed -n 's/^VERSION_CODENAME=//p' /etc/os-release)
keyring=/usr/share/keyrings/debian-archive-keyring.gpg
[ -f "$keyring" ] && signed="[signed-by=$keyring] " || signed=
apt-get indextargets --format '$(REPO_URI) $(RELEASE) $(COMPONENT)' 'Created-By: Packages' |
  sort -u | sed -n "s|^[^ ]* $release\(-[a-z]*\)\{0,1\} main\$|deb-src $signed&|p" \
  >"$work/sources.list"

private_apt() {
  apt-get -qq -o Dir::Etc::SourceList="$work/sources.list" -o Dir::Etc::SourceParts=- \
    -o Dir::State::Lists="$work/lists" -o Dir::Cache::pkgcache= -o Dir::Cache::srcpkgcache= \
    -o APT::Sandbox::User=root "$@"
}

cd "$work" && private_apt update >&2 && private_apt source --only-source minizip >&2 &&
  mv minizip-*/ ../minizip || {
  echo "error: minizip's source package could not be fetched" >&2
  exit 1
}
rm -rf "$work"
