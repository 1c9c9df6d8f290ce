// VDR's list of channels, and what it becomes by a restore.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "simulator/device/ListKeeper.h"
#include "simulator/device/Svdrp.h"
#include "simulator/lineup/ChannelList.h"

namespace sim {

// A channel that stays at a restore, whatever the backup has.
struct StayingChannel {
    int number = 0;
    std::string line;
    std::string group;
};

struct VdrChannels {
    ChannelList all;
    ChannelList shared;                      // what a backup carries
    std::vector<StayingChannel> own;         // the others: IP television, and what this program does not understand
    std::vector<std::string> notUnderstood;  // lines of the own
    std::vector<std::pair<Service, StayingChannel>> scheduled;  // those of the shared that a timer needs
    std::string current;                                        // identity of what is on; empty if it is not shared
};

// Throws Error, also if VDR has no channels.
VdrChannels readVdrChannels(Svdrp& vdr);

// The list that lines of a file stand for.
ChannelList parseVdrLines(const std::string& text);

// Where two lists differ first in what they mean; empty if they do not.
std::string firstDifference(const ChannelList& left, const ChannelList& right);

// The first channel that has another place in `list`; empty if there is none. With a tuner, VDR changes its list from
// its start on: it updates what else it knows of channels, and adds new ones at the end.
std::string firstMisplaced(const ChannelList& wanted, const ChannelList& list);

// The lines of a restored list with those that stay, for VDR's file. What VDR could not read, which would cost it the
// whole list, is left out and said; so is IP television. A channel that stays keeps its number if the restored list
// leaves that free; else it comes to the end, in a group of its group's name.
std::string mergedVdrChannels(const Services& restored, std::vector<StayingChannel> staying, const Say& say);

}  // namespace sim
