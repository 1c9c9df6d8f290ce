// Application framework: the main loop, launch requests and replies.
//
// Texts handed out are allocated with malloc(); the caller releases them with free(). Every int status
// of an app_control_ call is 0 on success and non-zero on failure; an out-parameter is left as it was
// on failure.
#pragma once

struct app_control_s;  // a launch request or a reply; opaque

// The lifecycle callbacks. All are called on the main loop, with the user data given to ui_app_main().
struct ui_app_callbacks {
    bool (*create)(void* userData);     // once, before anything else; false ends the application at once
    void (*terminate)(void* userData);  // once, after the main loop has ended
    void (*pause)(void* userData);      // the application goes to the background
    void (*resume)(void* userData);     // and comes back
    void (*control)(app_control_s* request, void* userData);  // the request is valid during the call only
};

extern "C" {

// Runs the main loop until ui_app_exit() is called or the framework reclaims the application.
// 0: the loop ran and ended. Non-zero: it could not be run; no or not all callbacks were called.
int ui_app_main(int argc, char** argv, const ui_app_callbacks* callbacks, void* userData);

// Asks the main loop to end; it does so when the callback that is running returns.
void ui_app_exit();

// The id of the application that sent `request`, to be released with free().
int app_control_get_caller(app_control_s* request, char** callerId);

// The extra value of `request` under `key`, to be released with free(). Fails when there is none.
int app_control_get_extra_data(app_control_s* request, const char* key, char** value);

// A copy of `request` that outlives it, to be released with app_control_destroy().
int app_control_clone(app_control_s** clone, app_control_s* request);

// Whether the sender of `request` waits for a reply.
int app_control_is_reply_requested(app_control_s* request, bool* requested);

// A new, empty control, to be released with app_control_destroy().
int app_control_create(app_control_s** control);

// Sends `reply` with the result code `result` to the sender of `request`. Takes over neither handle.
int app_control_reply_to_launch_request(app_control_s* reply, app_control_s* request, int result);

// Releases a control made by app_control_create() or app_control_clone(). Fails for null and for one released before.
int app_control_destroy(app_control_s* control);

}  // extern "C"
