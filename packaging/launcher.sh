#!/bin/sh
# The program finds its gateway, certificate tool and guide beside itself and
# starts in the folder it was started from, where its file dialogs open. A
# desktop menu that starts programs in / means the user's home.
app_dir="$(dirname "$(readlink -f "$0")")/../lib/velmora"
if [ "$(pwd)" = / ] && [ -n "${HOME:-}" ]; then
    cd "$HOME" 2>/dev/null || true
fi
exec "$app_dir/velmora" "$@"
