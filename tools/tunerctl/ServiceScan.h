// After a scan has locked: each multiplex tuned in turn, its tables read through a demux, its
// services listed, and the multiplexes its NIT announces scanned too (as dvbv5-scan does).
#pragma once

#include <android/hardware/tv/tuner/1.0/ITuner.h>

#include <cstdint>
#include <string>
#include <vector>

#include "ChannelSettings.h"
#include "FrontendEvents.h"
#include "MultiplexTables.h"

namespace tunerctl {

struct ScannedMultiplex {
    ChannelOptions channel;   // as it tunes
    std::string label;        // "DVB-T 482.000 MHz"
    bool throughNit = false;  // announced by a NIT, not found by the frequency scan
    bool locked = false;
    uint16_t transportStreamId = 0;
    uint16_t networkId = 0;
    std::string network;
    std::vector<FoundService> services;
    std::vector<std::string> missing;  // tables that did not come whole in time
};

struct ServiceScanJob {
    sp<hal::ITuner> tuner;
    sp<hal::IFrontend> frontend;
    sp<FrontendEvents> events;
    uint32_t frontendId = 0;
    hal::FrontendInfo info{};
    bool json = false;
    bool followNit = true;
};

// Tunes each multiplex (and those the NITs announce), printing each one's services as it goes.
// Stops early on Ctrl-C. Exit code kSuccess, or the failure's.
int scanServices(const ServiceScanJob& job, const std::vector<ChannelOptions>& found,
                 std::vector<ScannedMultiplex>& out);

// The channel options that tune a multiplex a NIT's delivery descriptor describes, for a
// frontend of this type; false when the descriptor is of another delivery system. Satellite
// entries keep the LNB and switch input of `scanned`.
bool channelFromNit(const sc::TransportStreamInfo& ts, hal::FrontendType type,
                    const ChannelOptions& scanned, ChannelOptions& out);

}  // namespace tunerctl
