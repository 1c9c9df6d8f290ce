#include "platform/settings_store.h"

#include <cstring>

#include "simulator/client/Connection.h"

using client::call;
using client::give;
using client::text;
using wire::CallId;

int vconf_get_int(const char* key, int* out) {
    return give(call<CallId::vconf_get_int>({text(key)}), out);
}

int vconf_get_bool(const char* key, int* out) {
    return give(call<CallId::vconf_get_bool>({text(key)}), out);
}

int vconf_get_dbl(const char* key, double* out) {
    return give(call<CallId::vconf_get_dbl>({text(key)}), out);
}

char* vconf_get_str(const char* key) {
    const wire::Text value = call<CallId::vconf_get_str>({text(key)}).result;
    return value ? ::strdup(value->c_str()) : nullptr;
}

int vconf_set_int(const char* key, int value) {
    return call<CallId::vconf_set_int>({text(key), value}).result;
}

int vconf_set_bool(const char* key, int value) {
    return call<CallId::vconf_set_bool>({text(key), value != 0 ? 1 : 0}).result;
}

int vconf_set_dbl(const char* key, double value) {
    return call<CallId::vconf_set_dbl>({text(key), value}).result;
}

int vconf_set_str(const char* key, const char* value) {
    return call<CallId::vconf_set_str>({text(key), text(value)}).result;
}
