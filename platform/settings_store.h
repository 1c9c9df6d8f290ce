// Settings store: the platform's persistent values by key. Each key holds a value of one type.
//
// Every int status is 0 on success and non-zero on failure (no such key, or a value of another type);
// an out-parameter is left as it was on failure.
#pragma once

extern "C" {

int vconf_get_int(const char* key, int* out);
int vconf_get_bool(const char* key, int* out);  // 0 or 1
int vconf_get_dbl(const char* key, double* out);

// The text under `key`, to be released with free(); null when the key cannot be read.
char* vconf_get_str(const char* key);

// The setters make the key when there is none.
int vconf_set_int(const char* key, int value);
int vconf_set_bool(const char* key, int value);  // 0: false, anything else: true
int vconf_set_dbl(const char* key, double value);
int vconf_set_str(const char* key, const char* value);

}  // extern "C"
