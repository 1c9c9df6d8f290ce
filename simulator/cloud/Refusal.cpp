#include "simulator/cloud/Refusal.h"

#include <fmt/format.h>

#include <cctype>
#include <pugixml.hpp>
#include <string_view>
#include <utility>

#include "simulator/base/Text.h"

namespace sim {

namespace {

constexpr std::size_t SHOWN_BYTES = 120;

// The store's sentence, as far as it is a sentence.
std::string quoted(const std::string& text) {
    const std::string_view start = startOf(text, SHOWN_BYTES);
    return fmt::format("\"{}{}\"", shown(start), start.size() < text.size() ? "..." : "");
}

// What the store's code means to the user; empty: its own words must do.
std::string meaningOf(const Refusal& refusal, const std::string& bucket) {
    const std::pair<const char*, std::string> meanings[] = {
        {"SignatureDoesNotMatch", "AWS_SECRET_ACCESS_KEY is not the secret of the access key in AWS_ACCESS_KEY_ID"},
        {"InvalidAccessKeyId", "it does not know the access key in AWS_ACCESS_KEY_ID"},
        {"InvalidToken", "it does not accept AWS_SESSION_TOKEN"},
        {"ExpiredToken", "AWS_SESSION_TOKEN has expired; get a new one"},
        {"RequestTimeTooSkewed", "the clocks of this machine and of the store differ too much; set this machine's"},
        {"NoSuchBucket",
         fmt::format("there is no bucket {0}; make it with: halcyon-tv --cloud s3://{0} cloud create", bucket)},
        {"InvalidRange", "the object is empty"},
        {"NoSuchKey", "there is no such object"},
        {"AccessDenied", "the access key in AWS_ACCESS_KEY_ID has no permission for this"},
        {"XAmzContentSHA256Mismatch", "what arrived is not what was sent"},
        {"BadDigest", "what arrived is not what was sent"},
        {"QuotaExceeded", "the quota is used up; remove backups with: halcyon-tv cloud remove"},
        {"BucketAlreadyExists", fmt::format("the bucket {} belongs to somebody else; choose another name", bucket)},
        {"InvalidBucketName",
         fmt::format("the store does not accept {} as the name of a bucket; choose another one", bucket)},
        {"InvalidLocationConstraint", "it has no region of the name in AWS_REGION"},
        {"AuthorizationHeaderMalformed", "AWS_REGION is not the region of the store"}};
    for (const auto& [code, meaning] : meanings) {
        if (refusal.code == code) {
            return meaning;
        }
    }
    return "";
}

}  // namespace

Refusal::Refusal(long responseStatus, const std::string& body) : status(responseStatus) {
    pugi::xml_document document;
    document.load_buffer(body.data(), body.size());
    const pugi::xml_node error = document.child("Error");
    code = error.child("Code").text().get();
    message = error.child("Message").text().get();
    region = error.child("Region").text().get();
    endpoint = error.child("Endpoint").text().get();
    page = code.empty() ? startOfPage(body) : "";
}

std::string words(const Refusal& refusal, const std::string& bucket) {
    if (refusal.code.empty()) {
        return fmt::format("status {}, with {}", refusal.status, refusal.page);
    }
    const std::string meaning = meaningOf(refusal, bucket);
    std::string text = meaning.empty() ? fmt::format("{} (status {})", inQuotes(refusal.code), refusal.status)
                                       : fmt::format("{} ({})", meaning, refusal.code);
    // The store may tell more than what its code means, but nothing if it just repeats the code.
    if (!refusal.message.empty() && refusal.message != refusal.code) {
        text += ": " + quoted(refusal.message);
    }
    if (!refusal.region.empty()) {
        text += fmt::format("; the bucket is in the region {}: set AWS_REGION", inQuotes(refusal.region));
    }
    if (!refusal.endpoint.empty()) {
        text += fmt::format("; {} has it: set AWS_ENDPOINT_URL", inQuotes(refusal.endpoint));
    }
    return text;
}

std::string startOfPage(const std::string& text) {
    std::string plain;
    bool isMarkup = false;
    for (const char c : text) {
        isMarkup = c == '<' || (isMarkup && c != '>');
        const bool isBlank = c == '>' || c == '<' || isMarkup || std::isspace(static_cast<unsigned char>(c)) != 0;
        if (!isBlank) {
            plain += c;
        } else if (!plain.empty() && plain.back() != ' ') {
            plain += ' ';
        }
    }
    plain.erase(plain.find_last_not_of(' ') + 1);
    return text.empty() ? "nothing" : plain.empty() ? "no text" : quoted(plain);
}

}  // namespace sim
