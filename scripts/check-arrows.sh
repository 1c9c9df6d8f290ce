#!/usr/bin/env bash
# Checks that includes between the simulator's rooms run one way, and that libraries stay in the rooms that they belong to.
set -euo pipefail
cd "$(dirname "$0")/.."

failed=0
# allow FOLDER PATTERN REASON: what the sources of the folder include of this project or its libraries must match.
allow() {
    local found
    found=$(grep -rnE '#include [<"]' "$1" --include='*.h' --include='*.cpp' --include='*.inc' |
        grep -E "[<\"]($PROJECT)" | grep -vE "[<\"]($2)" || true)
    [ -z "$found" ] || { printf 'check-arrows: %s:\n%s\n' "$3" "$found" >&2; failed=1; }
}
PROJECT='src/|platform/|simulator/|tests/|sqlite3|SQLiteCpp/|curl/'

allow simulator/base     'simulator/base/'                                            'base/ includes base/ alone'
allow simulator/tv       'simulator/(base|tv)/|sqlite3'                               'tv/ includes base/, and SQLite'
allow simulator/cloud    'simulator/(base|cloud)/|curl/'                              'cloud/ includes base/, and libcurl'
allow simulator/reports  'simulator/(base|tv|cloud|reports)/'                         'reports/ includes tv/, cloud/, base/'
allow simulator/cli      'simulator/(base|tv|cloud|reports|cli)/'                     'cli/ includes reports/ and what is below'
allow simulator/platform 'simulator/(base|tv|cloud|platform)/|platform/'              'platform/ includes tv/, cloud/, base/'
allow platform           'platform/'                                                  'the platform headers include each other alone'
[ "$failed" -eq 0 ] && echo "check-arrows: includes run one way"
exit "$failed"
