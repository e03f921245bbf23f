#!/bin/sh
# Sample of the step in a field computer's start-up that migrates the database, to be run before the
# device software opens it. schemaversion.txt, which the image builder writes beside the program,
# holds the schema version that the image's device software works with.
#
# The program is never started without a target: it would go back to the version before its last
# migration. Nor with a text that is no number: that counts as 0, and every step would be reverted.
set -eu

directory=$(dirname "$(readlink -f "$0")")
target=$(cat "$directory/schemaversion.txt")
case $target in
    '' | 0* | *[!0-9]*)
        echo "$0: no schema version in schemaversion.txt: '$target'" >&2
        exit 1
        ;;
esac
exec "$directory/database-migrator" "$target"
