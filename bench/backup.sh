#!/bin/sh
# What a backup does, as a shell script: backup.sh TV_HOME CLOUD_FOLDER
set -eu
home=$1 cloud=$2 work=$1/tmp/script
rm -rf "$work"
mkdir -p "$work/bundle/ci" "$cloud"

# The TV service's databases, each as an archive; the channel database without what is this set's own.
sqlite3 "$home/service-db/services.db" "VACUUM INTO '$work/services.db'"
cp "$home/service-db/ipsrv" "$work/ipsrv"
(cd "$work" && zip -q bundle/ServiceDB.zip services.db ipsrv)
unzip -q "$work/bundle/ServiceDB.zip" -d "$work/service-db"
rm "$work/service-db/ipsrv" "$work/bundle/ServiceDB.zip"
(cd "$work/service-db" && zip -qrm ../bundle/ServiceDB.zip .)
sqlite3 "$home/iss.db" "VACUUM INTO '$work/iss.db'"
(cd "$work" && zip -q bundle/issDB.zip iss.db)

cp "$home"/ci/* "$work/bundle/ci/"
sqlite3 "$home/tv.db" >"$work/bundle/vconf.json" \
    "SELECT json_object('data', json_group_array(json_object('path', key, 'type', 1, 'value', value))) FROM settings"
(cd "$work/bundle" && zip -qrm ../bundle.zip .)

# Into the cloud, with what is on, whole or not at all.
mkdir "$work/backup"
sqlite3 "$home/tv.db" >"$work/backup/metadata.json" \
    "SELECT json_object('service_id', service_id, 'source', source, 'antenna_mode', antenna_mode) FROM state"
sqlite3 "$home/service-db/services.db" >"$work/backup/info.json" \
    "SELECT json_object('services', count(*)) FROM services"
cp "$work/bundle.zip" "$work/backup/bundle.zip"
mv -T "$work/backup" "$cloud/$(printf %06d "$(($(find "$cloud" -mindepth 1 -maxdepth 1 | wc -l) + 1))")"
rm -rf "$work"
