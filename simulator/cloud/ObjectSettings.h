// What leads to an object store, from the environment and from the files with profiles that other tools use, too.
#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace sim {

struct ObjectSettings {
    std::vector<std::string> endpoints;  // at least one, without a '/' at the end
    std::string key;
    std::string secret;
    std::string token;                // that goes with a temporary key; empty: none
    std::string region;               // empty: not set
    std::string certificates;         // file of trusted authorities; empty: those of the machine
    std::chrono::seconds stall{20};   // a try ends after so long without progress
    std::chrono::seconds limit{900};  // a request, with all its tries, ends after so long
    std::chrono::seconds pause{1};    // before the second try at most; doubled before each further one
    std::vector<std::string> unused;  // what is set and has no effect, in words
};

// From the environment:
//   AWS_ENDPOINT_URL_S3, else AWS_ENDPOINT_URL          addresses, separated by commas
//   AWS_ACCESS_KEY_ID, AWS_SECRET_ACCESS_KEY, AWS_SESSION_TOKEN
//   AWS_REGION, else AWS_DEFAULT_REGION
//   AWS_CA_BUNDLE
//   HALCYON_CLOUD_STALL, HALCYON_CLOUD_LIMIT, HALCYON_CLOUD_PAUSE
// What it lacks is taken from the profile $AWS_PROFILE, else "default", in AWS_SHARED_CREDENTIALS_FILE
// (~/.aws/credentials) and AWS_CONFIG_FILE (~/.aws/config). Throws Error, without a secret in the message, if something
// is missing or cannot be used.
ObjectSettings readObjectSettings();

}  // namespace sim
