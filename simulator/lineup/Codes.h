// The codes that a TV and its services use. Codes that a TV does not know can come from a bundle or from a
// fault rule; they are kept as they are.
#pragma once

#include <array>

#include "simulator/base/Names.h"

namespace sim {

enum class AntennaMode : int { Terrestrial = 0, Cable = 1, Satellite = 2 };
template <>
inline constexpr std::array<Name<AntennaMode>, 3> NAMES<AntennaMode>{{
    {AntennaMode::Terrestrial, "terrestrial"},
    {AntennaMode::Cable, "cable"},
    {AntennaMode::Satellite, "satellite"},
}};

enum class ServiceMode : int { All = 0, Television = 1, Radio = 2 };
template <>
inline constexpr std::array<Name<ServiceMode>, 3> NAMES<ServiceMode>{{
    {ServiceMode::All, "all"},
    {ServiceMode::Television, "television"},
    {ServiceMode::Radio, "radio"},
}};

enum class Source : int { Tuner = 0, Input1 = 1, Input2 = 2, Input3 = 3, Input4 = 4 };
template <>
inline constexpr std::array<Name<Source>, 5> NAMES<Source>{{
    {Source::Tuner, "the tuner"},
    {Source::Input1, "external input 1"},
    {Source::Input2, "external input 2"},
    {Source::Input3, "external input 3"},
    {Source::Input4, "external input 4"},
}};

// What an antenna input that is connected reports.
enum class AntennaInput : int { Terrestrial = 0, Cable = 1, Satellite = 2, Satellite2 = 3, Combined = 4 };
template <>
inline constexpr std::array<Name<AntennaInput>, 5> NAMES<AntennaInput>{{
    {AntennaInput::Terrestrial, "terrestrial"},
    {AntennaInput::Cable, "cable"},
    {AntennaInput::Satellite, "satellite"},
    {AntennaInput::Satellite2, "second satellite"},
    {AntennaInput::Combined, "combined"},
}};

enum class CategoryKind : int { All = 0, FavouriteList = 1, Group = 2 };
template <>
inline constexpr std::array<Name<CategoryKind>, 3> NAMES<CategoryKind>{{
    {CategoryKind::All, "all services"},
    {CategoryKind::FavouriteList, "favourite list"},
    {CategoryKind::Group, "group"},
}};

enum class SortMode : int { Number = 0, Name = 1, Provider = 2 };
template <>
inline constexpr std::array<Name<SortMode>, 3> NAMES<SortMode>{{
    {SortMode::Number, "number"},
    {SortMode::Name, "name"},
    {SortMode::Provider, "provider"},
}};

enum class SettingType { Int, Bool, Double, String };
template <>
inline constexpr std::array<Name<SettingType>, 4> NAMES<SettingType>{{
    {SettingType::Int, "int"},
    {SettingType::Bool, "bool"},
    {SettingType::Double, "double"},
    {SettingType::String, "string"},
}};

// The cloud service's responses.
enum class Response : int {
    Unhandled = 0,
    BackupCompleted = 101,
    RestoreData = 102,
    ListDevicesCompleted = 103,
    Error = 500,
    BackupSchemaError = 502,
    ServerNotResponding = 503,
    DuplicatedData = 504,
};
template <>
inline constexpr std::array<Name<Response>, 8> NAMES<Response>{{
    {Response::Unhandled, "unhandled"},
    {Response::BackupCompleted, "backup completed"},
    {Response::RestoreData, "restore data"},
    {Response::ListDevicesCompleted, "device listing completed"},
    {Response::Error, "error"},
    {Response::BackupSchemaError, "backup schema error"},
    {Response::ServerNotResponding, "server not responding"},
    {Response::DuplicatedData, "duplicated data"},
}};

// What a fault does to the file that a call has made.
enum class Damage {
    Truncate,    // its second half goes
    Corrupt,     // some bytes are wrong
    Empty,       // all of them go
    Missing,     // the file goes
    Dangling,    // it is a link to nowhere
    Unwritable,  // it can be read, but not be written again, not even by root
};
template <>
inline constexpr std::array<Name<Damage>, 6> NAMES<Damage>{{
    {Damage::Truncate, "truncate"},
    {Damage::Corrupt, "corrupt"},
    {Damage::Empty, "empty"},
    {Damage::Missing, "missing"},
    {Damage::Dangling, "dangling"},
    {Damage::Unwritable, "unwritable"},
}};

}  // namespace sim
