#!/bin/sh
# What a backup does, in the words of a shell: backup.sh TV_HOME CLOUD_FOLDER
set -eu
home=$1 cloud=$2 work=$1/tmp/script
rm -rf "$work"
mkdir -p "$work/bundle/ci" "$cloud"

# The TV service's databases, each as an archive; the channel database without what is this set's own.
sqlite3 "$home/service-db/services.db" "VACUUM INTO '$work/services.db'"
cp "$home/service-db/ipsrv" "$work/ipsrv"
(cd "$work" && zip -q bundle/ServiceDB.zip services.db ipsrv)
(cd "$work" && mkdir service-db && unzip -q bundle/ServiceDB.zip -d service-db && rm service-db/ipsrv bundle/ServiceDB.zip)
(cd "$work/service-db" && zip -qrm ../bundle/ServiceDB.zip .)
sqlite3 "$home/iss.db" "VACUUM INTO '$work/iss.db'"
(cd "$work" && zip -q bundle/issDB.zip iss.db)

cp "$home"/ci/* "$work/bundle/ci/"
sqlite3 "$home/tv.db" "SELECT json_object('data', json_group_array(json_object('path', key, 'type', 1, 'value', value))) FROM settings" >"$work/bundle/vconf.json"
(cd "$work/bundle" && zip -qrm ../bundle.zip .)

# Into the cloud, with what is on, whole or not at all.
mkdir "$work/backup"
sqlite3 "$home/tv.db" "SELECT json_object('service_id', service_id, 'source', source, 'antenna_mode', antenna_mode) FROM state" >"$work/backup/metadata.json"
sqlite3 "$home/service-db/services.db" "SELECT json_object('services', count(*)) FROM services" >"$work/backup/info.json"
cp "$work/bundle.zip" "$work/backup/bundle.zip"
mv -T "$work/backup" "$cloud/$(printf %06d "$(($(ls "$cloud" | wc -l) + 1))")"
rm -rf "$work"
