# What the installation tests share.
set -euo pipefail

fail() {
    echo "$*" >&2
    exit 1
}

skip() {
    echo "skipped: $*"
    exit 77
}

# An empty working directory of that name.
fresh() {
    rm -rf "$RAVO_SCRATCH/$1"
    mkdir -p "$RAVO_SCRATCH/$1"
    cd "$RAVO_SCRATCH/$1"
}

# The files below a folder, with the names that differ between machines and versions made general.
list_files() {
    (cd "$1" && find . ! -type d -printf '%P\n') |
        sed -e "s,$RAVO_LIBDIR,LIBDIR,; s,$RAVO_VERSION,VERSION,; s,-$RAVO_CONFIGURATION\.,-CONFIGURATION.," |
        LC_ALL=C sort
}

# Fails unless the files below the folder are those that the checked-in list names.
expect_files() {
    diff -u "$RAVO_SOURCE/tests/install/$2" <(list_files "$1") || fail "$1 does not hold what $2 lists"
}

# The output of every host of tests/install/foreign.
version_number=$(printf '0x%02X%02X%02X%02X' ${RAVO_VERSION//./ })

# Fails unless the program runs and prints the library's version.
expect_version_from() {
    local printed
    printed=$("$@") || fail "$* fails"
    [[ $printed == "$version_number" ]] || fail "$* prints $printed, not $version_number"
}
