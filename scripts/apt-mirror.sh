#!/usr/bin/env bash
# Prints the Debian mirror that this machine's own apt sources use for its
# release, so that another suite can be added on the same mirror (a plant's
# network often has a mirror or proxy of its own).
#   apt-mirror.sh [root]      root: a folder standing in for / (for tests)
# An entry counts when it is read by apt (sources.list, *.list and *.sources in
# sources.list.d, not disabled), lists the release's own suite (not -security,
# -updates and the like) with "main", and is signed, if it says so, by the
# Debian archive key; other repositories are left out. Both the one-line form
# and the deb822 form are read. Exits 1 when no entry counts.
set -euo pipefail

root=${1:-}
codename=$(sed -n 's/^VERSION_CODENAME=//p' "$root/etc/os-release" 2>/dev/null | tr -d '"' | head -n 1)
if [ -z "$codename" ]; then
    echo "apt-mirror.sh: no VERSION_CODENAME in $root/etc/os-release" >&2
    exit 1
fi

# In the order apt reads them.
files=()
[ -f "$root/etc/apt/sources.list" ] && files+=("$root/etc/apt/sources.list")
for f in "$root"/etc/apt/sources.list.d/*; do
    case "$f" in
    *.list | *.sources) [ -f "$f" ] && files+=("$f") ;;
    esac
done
[ ${#files[@]} -gt 0 ] || exit 1

mirror=$(awk -v codename="$codename" '
    function has(list, word,   n, parts, i) {
        n = split(list, parts, /[ \t]+/)
        for (i = 1; i <= n; i++)
            if (parts[i] == word)
                return 1
        return 0
    }
    function debian(suites, components, signedBy) {
        return has(suites, codename) && has(components, "main") &&
               (signedBy == "" || signedBy ~ /debian-archive-keyring/)
    }
    function found(uri) {
        print uri
        done = 1
        exit
    }
    # A deb822 stanza ends at a blank line and at the end of its file.
    function endStanza(   n, list, i) {
        if (inStanza && has(types, "deb") && tolower(enabled) !~ /no/ && debian(suites, components, signedBy)) {
            n = split(uris, list, /[ \t]+/)
            for (i = 1; i <= n; i++)
                if (list[i] != "" && list[i] !~ /^cdrom:/)
                    found(list[i])
        }
        inStanza = 0
        types = uris = suites = components = signedBy = enabled = key = ""
    }
    FNR == 1 { endStanza() }
    FILENAME ~ /\.sources$/ {
        if ($0 ~ /^#/)
            next
        if ($0 ~ /^[ \t]*$/) {
            endStanza()
            next
        }
        # A continuation line: only a key written into Signed-By has them,
        # which is not the Debian archive key.
        if ($0 ~ /^[ \t]/) {
            if (key == "signed-by")
                signedBy = signedBy " embedded"
            next
        }
        inStanza = 1
        colon = index($0, ":")
        key = tolower(substr($0, 1, colon - 1))
        value = substr($0, colon + 1)
        if (key == "types") types = value
        else if (key == "uris") uris = value
        else if (key == "suites") suites = value
        else if (key == "components") components = value
        else if (key == "signed-by") signedBy = value
        else if (key == "enabled") enabled = value
        next
    }
    {
        sub(/#.*/, "")
        if ($1 != "deb")
            next
        field = 2
        signedBy = ""
        if ($2 ~ /^\[/) {
            for (; field <= NF; field++) {
                option = $field
                gsub(/[][]/, "", option)
                if (option ~ /^signed-by=/)
                    signedBy = substr(option, 11)
                if ($field ~ /\]$/) {
                    field++
                    break
                }
            }
        }
        components = ""
        for (i = field + 2; i <= NF; i++)
            components = components " " $i
        if ($field !~ /^cdrom:/ && debian($(field + 1), components, signedBy))
            found($field)
    }
    END {
        if (!done)
            endStanza()
        if (!done)
            exit 1
    }
' "${files[@]}") || exit 1
echo "${mirror%/}"
