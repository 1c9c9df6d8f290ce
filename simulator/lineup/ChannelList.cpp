#include "simulator/lineup/ChannelList.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <memory>
#include <utility>

#include "simulator/base/Encoding.h"
#include "simulator/base/Error.h"
#include "simulator/base/FileKind.h"
#include "simulator/base/Files.h"
#include "simulator/base/Text.h"
#include "simulator/lineup/ListFormats.h"
#include "simulator/lineup/ListText.h"
#include "simulator/lineup/TvheadendList.h"
#include "simulator/lineup/VdrList.h"

namespace fs = std::filesystem;

namespace sim {

namespace {

std::string adviceOn(const fs::path& file) {
    const std::string kind = isRegularFile(file) ? fileKind(file) : "";
    return fmt::format("{}give a channel list in the channels.conf format of VDR, or another of docs/formats.md",
                       kind.empty() ? "" : fmt::format("it looks like this: {}; ", kind));
}

// Passes lines to the reader of the format that they show. The list may come from a pipe, so that it is read once: what
// it begins with is kept until there is enough of it to tell.
class Recognition {
public:
    Recognition(ListFile file, ListIntake& intake) : m_file(std::move(file)), m_intake(intake) {}

    void take(const std::string& line) {
        if (m_reader) {
            pass(line);
            return;
        }
        m_bytes += line.size() + 1;
        m_begun.push_back(line);
        if (m_begun.size() >= HEAD_LINES || m_bytes >= HEAD_BYTES) {
            decide();
        }
    }

    const ListFormat& finish() {
        if (!m_reader) {
            decide();
        }
        named([&] { m_reader->finish(); });
        return *m_format;
    }

private:
    static constexpr std::size_t HEAD_LINES = 200;
    static constexpr std::size_t HEAD_BYTES = 64U << 10;

    void decide() {
        std::vector<std::string> head;
        std::copy_if(m_begun.begin(), m_begun.end(), std::back_inserter(head),
                     [](const std::string& line) { return !trimmed(line).empty(); });
        m_format = &listFormats().back();
        if (!head.empty()) {
            m_format = &*std::find_if(listFormats().begin(), listFormats().end(),
                                      [&](const ListFormat& format) { return format.fits(head); });
        }
        m_intake.setUnit(m_format->unit);
        m_reader = m_format->reader(m_file, m_intake);
        for (const std::string& line : std::exchange(m_begun, {})) {
            pass(line);
        }
    }

    void pass(const std::string& line) {
        m_intake.setPlace(++m_line);
        named([&] { m_reader->take(line); });
    }

    // Errors of a reader do not have the file.
    template <typename Step>
    void named(Step step) const {
        try {
            step();
        } catch (const Error& error) {
            throw Error(error.kind(), fmt::format("{}: {}", m_file.path.string(), error.what()));
        }
    }

    ListFile m_file;
    ListIntake& m_intake;
    std::vector<std::string> m_begun;
    std::size_t m_bytes = 0;
    int m_line = 0;
    const ListFormat* m_format = nullptr;
    std::unique_ptr<ListReader> m_reader;
};

// The file of a folder of Enigma2; empty if the folder is none.
fs::path lamedbIn(const fs::path& folder) {
    for (const char* name : {"lamedb", "lamedb5"}) {
        if (isPlainFile(folder / name)) {
            return folder / name;
        }
    }
    return {};
}

std::string_view read(const fs::path& given, const ListOptions& options, ListIntake& intake) {
    fs::path file = given;
    if (isFolder(given)) {
        if (isTvheadendFolder(given)) {
            const ListFormat& format = listFormat("tvheadend");
            intake.setUnit(format.unit);
            readTvheadendFolder(given, intake);
            return format.name;
        }
        file = lamedbIn(given);
        if (file.empty()) {
            throw Error(
                fmt::format("{}: a folder without a channel list: neither lamedb of Enigma2 nor the "
                            "channels of Tvheadend are in it",
                            given.string()));
        }
        intake.setPlace(file.string(), 0);
    }
    Recognition recognition({file, options.encoding}, intake);
    intake.addLatin1(forEachTextLine(file, options.encoding, [&](const std::string& line) { recognition.take(line); }));
    return recognition.finish().name;
}

// A line for each of the first problems, and how many follow.
std::string some(const ChannelSummary& summary) {
    constexpr std::size_t SHOWN = 10;
    std::string lines;
    for (std::size_t i = 0; i < summary.problems.size() && i < SHOWN; ++i) {
        lines += "\n" + summary.problems[i];
    }
    return summary.skipped > SHOWN ? fmt::format("{}\n... and {} more", lines, summary.skipped - SHOWN) : lines;
}

}  // namespace

std::size_t ChannelList::addService(const Service& service) {
    const auto [known, isNew] = m_places.emplace(service.identity, services.size() + 1);
    if (!isNew) {
        return known->second;
    }
    services.push_back(service);
    return 0;
}

ChannelSummary readChannelList(const fs::path& file, ChannelSink& sink, const ListOptions& options) {
    if (!options.satellite.empty() && !(isVdrSource(options.satellite) && options.satellite.front() == 'S')) {
        throw Error(fmt::format("{} is no satellite such as S19.2E", inQuotes(options.satellite)));
    }
    if (!options.encoding.empty()) {
        const Decoder known(options.encoding, file.string());
    }
    ListIntake intake(file.string(), options.satellite, sink);
    std::string_view format;
    try {
        format = read(file, options, intake);
    } catch (const Error& error) {
        throw Error(error.kind(), fmt::format("{}; {}", error.what(), adviceOn(file)));
    }
    ChannelSummary summary = intake.finish();
    summary.format = format;
    if (summary.services == 0) {
        throw Error(fmt::format("{}: no service in it; {}{}", file.string(), adviceOn(file), some(summary)));
    }
    return summary;
}

}  // namespace sim
