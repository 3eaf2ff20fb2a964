# Shared by the scripts of this folder and by ./demo and ./test. Source it.

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
deps=$root/.deps
build=$root/build

say() { printf '\n==> %s\n' "$*"; }
note() { printf '    %s\n' "$*"; }
die() {
    printf '\nkestrel: %s\n' "$*" >&2
    exit 1
}
