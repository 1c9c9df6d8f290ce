// A bundle: what a backup holds, item by item, and whether it is whole.
#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "simulator/lineup/Metadata.h"
#include "simulator/lineup/ServiceDb.h"
#include "simulator/lineup/Setup.h"
#include "simulator/lineup/Unpacking.h"

namespace sim {

enum class PartState {
    Whole,
    Absent,
    Damaged,
};
template <>
inline constexpr std::array<Name<PartState>, 3> NAMES<PartState>{{
    {PartState::Whole, "whole"},
    {PartState::Absent, "absent"},
    {PartState::Damaged, "damaged"},
}};

struct BundlePart {
    PartState state = PartState::Absent;
    std::string problem;  // why it is damaged, or absent
};

class Bundle {
public:
    // Reads a bundle file, with its metadata if that is known. What is wrong with it is in the parts. Throws Error if
    // there is no such file, or no room to unpack it.
    Bundle(const std::filesystem::path& file, std::optional<std::string> metadata);

    // What an earlier restore has left in its folder, read as if it was the content of a bundle without metadata. Empty
    // if there is no such folder.
    static Bundle ofUnpacked(const std::filesystem::path& folder);

    const std::string& problem() const { return m_problem; }  // of the archive as such; empty: it can be read
    const std::vector<UnpackedEntry>& entries() const { return m_unpacking.entries; }
    // SHA-256 by path; a path that is no regular file, which only ofUnpacked() can find, ends in '/' and has none.
    const std::map<std::string, std::string>& files() const { return m_unpacking.files; }
    const BundlePart& part(Item item) const { return m_parts.at(item); }
    // The application ends when it reads the settings: an exception leaves it. The items behind them stay as they are.
    bool endsAtSettings() const { return m_endsAtSettings; }
    const std::string& settingsProblem() const { return m_settingsProblem; }  // why it sets none, or not all; or empty
    // Nothing is damaged, and other readers of archives see what the application unpacks.
    bool isWhole() const { return problems().empty() && m_ambiguities.empty(); }
    std::vector<std::string> problems() const;       // what is damaged, a line each
    std::vector<std::string> fatalProblems() const;  // of these, what makes a restore fail

    const std::vector<std::string>& ambiguities() const { return m_ambiguities; }

    const std::optional<std::string>& metadataText() const { return m_metadataText; }
    const Metadata& metadata() const { return m_metadata; }

    // The items that are whole, and why the others are lacking.
    const Setup& setup() const { return m_setup; }

private:
    struct Folders;

    Bundle();
    void readItems(const Folders& folders);
    void readServices(const Folders& folders);
    void readSettings(const Folders& folders);
    void readIss(const Folders& folders);
    void readCi(const Folders& folders);
    template <typename Read>
    void read(Item item, const Folders& folders, Read read);
    void noteLacking();
    // Throws Error (Damaged) if the application fails at that entry. Returns false if there is none.
    bool isUnpacked(const std::string& path) const;

    std::string m_problem;
    std::string m_settingsProblem;
    bool m_endsAtSettings = false;
    Unpacking m_unpacking;
    std::vector<std::string> m_ambiguities;
    std::map<Item, BundlePart> m_parts;
    std::optional<std::string> m_metadataText;
    Metadata m_metadata;
    Setup m_setup;
};

}  // namespace sim
