// The metadata record that travels with a backup: the state of the TV when the backup was taken.
#pragma once

#include <cstdint>
#include <string>

#include "platform/tv_service.h"

class CJsonSchema {
public:
    // Captures the TV's present state. What cannot be read is logged and stays unknown.
    CJsonSchema();

    // Reads a record from its JSON text. Never throws: what is absent, or cannot be converted to the member's type, is
    // unknown, and a text that is not JSON gives a record without a version.
    CJsonSchema(const std::string& json);

    CJsonSchema& operator=(const CJsonSchema& other);
    ~CJsonSchema();

    // The JSON text of the record, always of the present schema version.
    std::string StringJson();

    // Whether a backup with this record fits the TV as it is now: same schema version, same antenna connections.
    bool CheckMetaData();

    // Puts the TV back into the recorded viewing state. Does nothing when the TV mode is unknown.
    void RestoreServiceSetting();

private:
    // Bit mask of the antenna inputs that are connected now; -1 when the tuner cannot be asked.
    int m_GetAntennaStatus();

    std::string m_strVersion;
    std::int32_t m_nAntennaStatus = -1;
    TSTvMode m_tvMode{static_cast<EAntennaMode>(-1), static_cast<EServiceMode>(-1)};
    std::int32_t m_nSource = -1;
    std::uint64_t m_ullServiceId = UINT64_MAX;
    CCNavigationModeInfo m_navigationModeInfo{static_cast<ECategory>(-1), 0, static_cast<ESortMode>(-1)};
};
