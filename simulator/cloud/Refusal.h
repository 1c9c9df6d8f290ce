// What an object store answers if it does not do what it is asked for.
#pragma once

#include <string>

namespace sim {

struct Refusal {
    // `body` is that of a response with a status other than 2xx: XML of the store, a page of something in between, or
    // nothing.
    Refusal(long responseStatus, const std::string& body);

    long status;
    std::string code;      // such as NoSuchKey; empty: it is no answer of an object store
    std::string message;   // the store's own words
    std::string region;    // where the bucket is
    std::string endpoint;  // who has it
    std::string page;      // the start of what came instead of XML
};

// In words that tell what to do, with those of the store.
std::string words(const Refusal& refusal, const std::string& bucket);

// The start of a text that should have been XML, in quotes, without markup; "nothing" if it is empty.
std::string startOfPage(const std::string& text);

}  // namespace sim
