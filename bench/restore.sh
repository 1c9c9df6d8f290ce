#!/bin/sh
# What a restore does, as a shell script: restore.sh TV_HOME CLOUD_FOLDER
set -eu
home=$1 cloud=$2 work=$1/tmp/script
rm -rf "$work"
mkdir -p "$work"

backup=$(find "$cloud" -mindepth 1 -maxdepth 1 | sort | tail -n 1)
cp "$backup/bundle.zip" "$work/bundle.zip"
grep -q service_id "$backup/metadata.json"
unzip -q "$work/bundle.zip" -d "$work/bundle"

# What the channels were before.
sqlite3 -readonly "$home/service-db/services.db" "SELECT services.*, channel_groups.name FROM services
    LEFT JOIN channel_groups ON channel_groups.number = channel_group ORDER BY services.number" |
    sha256sum >"$work/before"

# The channels: checked, and their rows brought into new tables, which replace the old. By name, because older ones may
# have fewer columns; and each row has to fit, whatever the received tables say of themselves.
unzip -q "$work/bundle/ServiceDB.zip" -d "$work/received"
sqlite3 -readonly "$work/received/services.db" "PRAGMA integrity_check(1)" | grep -qx ok
sqlite3 "$home/service-db/services.db" .schema >"$work/schema.sql"
columns="id, number, identity, name, short_name, provider, type, channel_group, source, frequency_hz, symbol_rate,
parameters, video_pid, audio_pids, text_pids, conditional_access, sid, nid, tid, rid, favourite1, favourite2,
favourite3, favourite4, favourite5, locked, hidden, renamed, broadcast_name, frequency_unit, list_fields"
sqlite3 -bail "$work/services.db" >/dev/null <<SQL
PRAGMA journal_mode = MEMORY;
PRAGMA synchronous = OFF;
PRAGMA foreign_keys = ON;
.read $work/schema.sql
ATTACH '$work/received/services.db' AS received;
BEGIN;
INSERT INTO channel_groups SELECT * FROM received.channel_groups;
INSERT INTO services($columns) SELECT $columns FROM received.services NOT INDEXED;
INSERT INTO meta SELECT * FROM received.meta;
INSERT INTO list_headers SELECT * FROM received.list_headers;
COMMIT;
SQL
mv "$work/services.db" "$home/service-db/services.db"

sqlite3 "$home/tv.db" "UPDATE settings SET value = json_extract(item.value, '$.value')
    FROM json_each(readfile('$work/bundle/vconf.json'), '$.data') AS item
    WHERE settings.key = json_extract(item.value, '$.path')"

# The same for the iss database.
unzip -q "$work/bundle/issDB.zip" -d "$work/received"
sqlite3 -readonly "$work/received/iss.db" "PRAGMA integrity_check(1)" | grep -qx ok
sqlite3 -bail "$work/iss.db" "CREATE TABLE iss(key TEXT PRIMARY KEY, value TEXT NOT NULL) STRICT;
    ATTACH '$work/received/iss.db' AS received;
    INSERT INTO iss SELECT * FROM received.iss"
mv "$work/iss.db" "$home/iss.db"

# The CI files over those that are there.
cp -r "$home/ci" "$work/ci"
cp "$work/bundle"/ci/* "$work/ci/"
mv -T "$home/ci" "$work/ci.before"
mv -T "$work/ci" "$home/ci"

# What was on.
sqlite3 "$home/tv.db" "UPDATE state SET service_id = json_extract(m, '$.service_id'),
    source = json_extract(m, '$.source'), antenna_mode = json_extract(m, '$.antenna_mode')
    FROM (SELECT readfile('$backup/metadata.json') AS m)"
rm -rf "$work"
