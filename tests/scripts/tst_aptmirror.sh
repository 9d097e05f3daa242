#!/usr/bin/env bash
# The mirror that scripts/apt-mirror.sh reads from sample apt sources: one-line
# and deb822 entries, with the entries that must not count around the one that does.
#   tst_aptmirror.sh <path of apt-mirror.sh>
set -uo pipefail
tool=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failed=0

# case <name> <expected mirror, or "-" for none>; the sample root is $work/<name>
check() {
    local got rc
    got=$(bash "$tool" "$work/$1" 2>/dev/null)
    rc=$?
    if { [ "$2" = - ] && [ $rc -ne 0 ] && [ -z "$got" ]; } || [ "$got" = "$2" ]; then
        echo "ok   $1"
    else
        echo "FAIL $1: got '$got' (exit $rc), expected '$2'"
        failed=1
    fi
}

# root <name>: an empty machine of the release, whose apt sources the caller writes.
root() {
    mkdir -p "$work/$1/etc/apt/sources.list.d"
    printf 'PRETTY_NAME="Debian GNU/Linux 12 (bookworm)"\nVERSION_CODENAME=bookworm\n' >"$work/$1/etc/os-release"
    echo "$work/$1/etc/apt"
}

# The one-line form: comments, sources, a CD, the security and updates suites, a third party's
# repository with the release's name and its own key, and options before the mirror.
apt=$(root one-line)
cat >"$apt/sources.list" <<'LIST'
# deb http://old.example/debian bookworm main
deb-src http://src.example/debian bookworm main
deb cdrom:[Debian GNU/Linux 12]/ bookworm main
deb http://security.example/debian-security bookworm-security main
deb http://mirror.example/debian bookworm-updates main
deb [signed-by=/usr/share/keyrings/php.gpg] https://php.example/php/ bookworm main
deb https://docker.example/linux/debian bookworm stable
deb [arch=amd64 signed-by=/usr/share/keyrings/debian-archive-keyring.gpg] http://mirror.plant.example/debian/ bookworm main contrib # ours
LIST
check one-line http://mirror.plant.example/debian

# The deb822 form, as a fresh installation writes it, behind a sources.list of comments; a file
# that apt leaves out, the suite added before and a disabled stanza come first.
apt=$(root deb822)
echo "# see sources.list.d" >"$apt/sources.list"
echo "deb http://other.example/debian bookworm main" >"$apt/sources.list.d/a-old.list.disabled"
echo "deb http://next.example/debian trixie main" >"$apt/sources.list.d/b-velmora-trixie.list"
cat >"$apt/sources.list.d/c-debian.sources" <<'SOURCES'
Types: deb
URIs: http://off.example/debian
Suites: bookworm
Components: main
Enabled: no

Types: deb deb-src
# a snapshot once
URIs: https://proxy.plant.example:3142/debian
Suites: bookworm bookworm-updates
Components: main non-free-firmware
Signed-By: /usr/share/keyrings/debian-archive-keyring.gpg

Types: deb
URIs: https://proxy.plant.example:3142/debian-security
Suites: bookworm-security
Components: main
SOURCES
check deb822 https://proxy.plant.example:3142/debian

# A third party's stanza with its key written in, then the Debian one in a later file.
apt=$(root embedded-key)
cat >"$apt/sources.list.d/a-vendor.sources" <<'SOURCES'
Types: deb
URIs: https://vendor.example/debian
Suites: bookworm
Components: main
Signed-By:
 -----BEGIN PGP PUBLIC KEY BLOCK-----
 .
 -----END PGP PUBLIC KEY BLOCK-----
SOURCES
printf 'Types: deb\nURIs: http://mirror.example/debian/\nSuites: bookworm\nComponents: main\n' \
    >"$apt/sources.list.d/b-debian.sources"
check embedded-key http://mirror.example/debian

# Only other suites and other repositories: no mirror.
apt=$(root none)
echo "deb http://security.example/debian-security bookworm-security main" >"$apt/sources.list"
echo "deb https://packages.example/apt cloud-sdk-bookworm main" >"$apt/sources.list.d/cloud.list"
check none -
check missing-root -

exit $failed
