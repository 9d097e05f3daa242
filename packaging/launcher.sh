#!/bin/sh
# The program runs the certificate tool and opens its guide from the working
# directory, so it has to start in its own folder.
app_dir="$(dirname "$(readlink -f "$0")")/../lib/velmora"
cd "$app_dir" || exit 1
exec ./velmora "$@"
